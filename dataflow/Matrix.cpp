// Matrix<T>: shape bookkeeping and storage management.
#include "dataflow/Matrix.h"

#include <algorithm>
#include <utility>

namespace TesselModelBuilder {

template <typename T>
Matrix<T>::Matrix() {
    const size_t empty[2] = {0, 0};
    ResizeMultidimensional(2, empty);
}

template <typename T>
Matrix<T>::Matrix(size_t rows, size_t columns) {
    Resize(rows, columns);
}

template <typename T>
Matrix<T>::Matrix(size_t nDimensions, const size_t* dimensions) {
    ResizeMultidimensional(nDimensions, dimensions);
}

template <typename T>
Matrix<T>::Matrix(const Matrix& other) {
    ResizeMultidimensional(other.m_nDimensions, other.m_piDimension);
    std::copy(other.m_pData, other.m_pData + other.m_iNumElements, m_pData);
}

template <typename T>
Matrix<T>& Matrix<T>::operator=(const Matrix& other) {
    if (this != &other) {
        Matrix copy(other);
        std::swap(m_pData, copy.m_pData);
        std::swap(m_nDimensions, copy.m_nDimensions);
        std::swap(m_piDimension, copy.m_piDimension);
        std::swap(m_iNumElements, copy.m_iNumElements);
        std::swap(m_iMaxElements, copy.m_iMaxElements);
        std::swap(m_piColumnMajorStride, copy.m_piColumnMajorStride);
    }
    return *this;
}

template <typename T>
Matrix<T>::~Matrix() {
    delete[] m_pData;
    delete[] m_piDimension;
    delete[] m_piColumnMajorStride;
}

template <typename T>
void Matrix<T>::Resize(size_t rows, size_t columns) {
    const size_t dimensions[2] = {rows, columns};
    ResizeMultidimensional(2, dimensions);
}

template <typename T>
void Matrix<T>::ResizeMultidimensional(size_t nDimensions, const size_t* dimensions) {
    size_t count = 1;
    for (size_t i = 0; i < nDimensions; ++i) count *= dimensions[i];

    if (m_nDimensions < nDimensions || m_piDimension == nullptr) {
        delete[] m_piDimension;
        delete[] m_piColumnMajorStride;
        m_piDimension = nullptr;
        m_piColumnMajorStride = nullptr;
        m_piDimension = new size_t[nDimensions]();
        m_piColumnMajorStride = new size_t[nDimensions]();
    }
    m_nDimensions = nDimensions;
    m_iNumElements = count;

    if (count > m_iMaxElements) {
        m_iMaxElements = count;
        delete[] m_pData;
        m_pData = nullptr;
        // new T[] leaves doubles uninitialised and zeroes complex values.
        m_pData = new T[count];
    }
    SetShape(nDimensions, dimensions);
}

template <typename T>
void Matrix<T>::SetShape(size_t nDimensions, const size_t* dimensions) {
    size_t stride = 1;
    for (size_t i = 0; i < nDimensions; ++i) {
        m_piDimension[i] = dimensions[i];
        m_piColumnMajorStride[i] = stride;
        stride *= dimensions[i];
    }
}

template <typename T>
void Matrix<T>::SetMaxElements(size_t count) {
    if (count <= m_iMaxElements) return;
    delete[] m_pData;
    m_pData = nullptr;
    m_pData = new T[count];
    m_iMaxElements = count;
}

template <typename T>
void Matrix<T>::Zero() {
    std::fill(m_pData, m_pData + m_iNumElements, T(0));
}

template <typename T>
void Matrix<T>::Zero(size_t rows, size_t columns) {
    Resize(rows, columns);
    Zero();
}

template <typename T>
bool Matrix<T>::IsSizeEqual(const Matrix& other) const {
    return m_nDimensions == other.m_nDimensions &&
           std::equal(m_piDimension, m_piDimension + m_nDimensions, other.m_piDimension);
}

template <typename T>
bool Matrix<T>::operator==(const Matrix& other) const {
    return IsSizeEqual(other) &&
           std::equal(m_pData, m_pData + m_iNumElements, other.m_pData);
}

template class Matrix<double>;
template class Matrix<std::complex<double>>;

}  // namespace TesselModelBuilder
