// Matrix<T>: the library's owning multidimensional array, column-major.
//
// Element (r, c) of a two-dimensional matrix is m_pData[r + c * rows]. The
// storage capacity (m_iMaxElements) only ever grows: shrinking the shape keeps
// the storage and its values; growing past the capacity reallocates and drops
// the old values.
#pragma once

#include <complex>
#include <cstddef>

namespace TesselModelBuilder {

template <typename T>
class Matrix {
public:
    T* m_pData = nullptr;                     // column-major elements
    size_t m_nDimensions = 0;
    size_t* m_piDimension = nullptr;          // extent per dimension [rows, columns, ...]
    size_t m_iNumElements = 0;                // product of the extents
    size_t m_iMaxElements = 0;                // capacity of m_pData; never shrinks
    size_t* m_piColumnMajorStride = nullptr;  // stride per dimension, in elements

    Matrix();
    Matrix(size_t rows, size_t columns);
    Matrix(size_t nDimensions, const size_t* dimensions);
    Matrix(const Matrix& other);
    Matrix& operator=(const Matrix& other);
    ~Matrix();

    void Resize(size_t rows, size_t columns);
    void ResizeMultidimensional(size_t nDimensions, const size_t* dimensions);

    size_t NumRows() const { return m_piDimension[0]; }
    size_t NumColumns() const { return m_nDimensions > 1 ? m_piDimension[1] : 1; }
    size_t NumDimensions() const { return m_nDimensions; }
    bool IsMatrix() const { return m_nDimensions == 2; }
    const size_t* Dimensions() const { return m_piDimension; }
    size_t Size(size_t dimension) const { return m_piDimension[dimension]; }
    size_t NumElements() const { return m_iNumElements; }
    // Raise the capacity to at least `count` elements (values are not kept).
    void SetMaxElements(size_t count);
    // Set every element to zero.
    void Zero();
    // Take the given shape and set every element to zero.
    void Zero(size_t rows, size_t columns);
    bool IsSizeEqual(const Matrix& other) const;
    bool IsEmpty() const { return m_iNumElements == 0; }
    // Zero-by-zero shape; the storage is kept.
    void SetEmpty() { Resize(0, 0); }
    bool operator==(const Matrix& other) const;
    bool operator!=(const Matrix& other) const { return !(*this == other); }

private:
    void SetShape(size_t nDimensions, const size_t* dimensions);
};

extern template class Matrix<double>;
extern template class Matrix<std::complex<double>>;

}  // namespace TesselModelBuilder
