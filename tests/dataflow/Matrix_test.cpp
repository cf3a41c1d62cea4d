// Matrix: column-major strides, and storage that never shrinks.
#include <gtest/gtest.h>

#include <complex>
#include <vector>

#include "dataflow/Matrix.h"

using namespace TesselModelBuilder;

TEST(Matrix, StridesAreColumnMajorAndStorageNeverShrinks) {
    const size_t grid[3] = {3, 4, 2}, five[2] = {1, 5}, two[2] = {1, 2}, none[2] = {0, 0};
    const Matrix<double> cube(3, grid);
    EXPECT_EQ(std::vector<size_t>(cube.m_piColumnMajorStride, cube.m_piColumnMajorStride + 3), (std::vector<size_t>{1, 3, 12}));
    Matrix<double> m;
    m.ResizeMultidimensional(2, five);
    for (int i = 0; i < 5; ++i) m.m_pData[i] = i + 0.5;
    double* storage = m.m_pData;
    for (const size_t* dims : {two, none}) {
        m.ResizeMultidimensional(2, dims);
        EXPECT_TRUE(m.m_pData == storage && m.m_iMaxElements == 5u && m.m_pData[1] == 1.5);
        EXPECT_EQ(m.m_iNumElements, dims[1]);
    }
    Matrix<std::complex<double>> c(1, 2);  // growing reallocates; complex storage starts at zero
    c.m_pData[0] = {1.0, 2.0};
    c.Resize(1, 4);
    EXPECT_EQ(c.m_iMaxElements, 4u);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(c.m_pData[i], std::complex<double>(0.0, 0.0));
}
