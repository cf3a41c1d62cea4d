// Matrix: column-major strides, and storage that never shrinks.
#include <gtest/gtest.h>

#include <complex>

#include "dataflow/Matrix.h"

using namespace TesselModelBuilder;

TEST(Matrix, StridesAreColumnMajorAndStorageNeverShrinks) {
    const Matrix<double> grid(3, 4);
    EXPECT_EQ(grid.m_piColumnMajorStride[0], 1u);
    EXPECT_EQ(grid.m_piColumnMajorStride[1], 3u);

    Matrix<double> m;
    const size_t five[2] = {1, 5}, two[2] = {1, 2}, none[2] = {0, 0}, four[2] = {1, 4};
    m.ResizeMultidimensional(2, five);
    for (int i = 0; i < 5; ++i) m.m_pData[i] = i + 0.5;
    double* storage = m.m_pData;
    for (const size_t* dims : {two, none}) {
        m.ResizeMultidimensional(2, dims);
        EXPECT_EQ(m.m_pData, storage);
        EXPECT_EQ(m.m_iMaxElements, 5u);
        EXPECT_EQ(m.m_iNumElements, dims[1]);
        EXPECT_EQ(m.m_pData[0], 0.5);
        EXPECT_EQ(m.m_pData[1], 1.5);
    }
    // Growing reallocates; complex storage starts at zero.
    Matrix<std::complex<double>> c;
    c.ResizeMultidimensional(2, two);
    c.m_pData[0] = {1.0, 2.0};
    c.ResizeMultidimensional(2, four);
    EXPECT_EQ(c.m_iMaxElements, 4u);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(c.m_pData[i], std::complex<double>(0.0, 0.0));
}
