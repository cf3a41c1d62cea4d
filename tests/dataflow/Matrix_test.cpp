// Matrix: column-major shape, strides, and storage that never shrinks.
#include <gtest/gtest.h>

#include <complex>

#include "dataflow/Matrix.h"

using namespace TesselModelBuilder;

TEST(Matrix, DefaultIsAnEmptyTwoDimensionalMatrix) {
    Matrix<double> m;
    EXPECT_EQ(m.m_nDimensions, 2u);
    EXPECT_EQ(m.m_piDimension[0], 0u);
    EXPECT_EQ(m.m_piDimension[1], 0u);
    EXPECT_EQ(m.m_iNumElements, 0u);
    EXPECT_EQ(m.m_iMaxElements, 0u);
    EXPECT_EQ(m.m_pData, nullptr);
    EXPECT_TRUE(m.IsEmpty());
}

TEST(Matrix, StridesAreColumnMajor) {
    Matrix<double> m(3, 4);
    EXPECT_EQ(m.m_piColumnMajorStride[0], 1u);
    EXPECT_EQ(m.m_piColumnMajorStride[1], 3u);
    const size_t dims[3] = {2, 3, 4};
    m.ResizeMultidimensional(3, dims);
    EXPECT_EQ(m.NumDimensions(), 3u);
    EXPECT_EQ(m.m_piColumnMajorStride[2], 6u);
    EXPECT_EQ(m.NumElements(), 24u);
}

TEST(Matrix, ShrinkingKeepsStorageAndValuesGrowingReallocates) {
    Matrix<double> m;
    const size_t five[2] = {1, 5};
    m.ResizeMultidimensional(2, five);
    for (int i = 0; i < 5; ++i) m.m_pData[i] = i + 0.5;
    double* storage = m.m_pData;
    const size_t two[2] = {1, 2};
    m.ResizeMultidimensional(2, two);
    EXPECT_EQ(m.m_pData, storage);
    EXPECT_EQ(m.m_iMaxElements, 5u);
    EXPECT_EQ(m.m_iNumElements, 2u);
    EXPECT_EQ(m.m_pData[0], 0.5);
    EXPECT_EQ(m.m_pData[1], 1.5);
    const size_t none[2] = {0, 0};
    m.ResizeMultidimensional(2, none);
    EXPECT_EQ(m.m_pData, storage);
    EXPECT_EQ(m.m_iMaxElements, 5u);

    Matrix<std::complex<double>> c;
    const size_t small[2] = {1, 2};
    c.ResizeMultidimensional(2, small);
    c.m_pData[0] = {1.0, 2.0};
    const size_t big[2] = {1, 4};
    c.ResizeMultidimensional(2, big);
    EXPECT_EQ(c.m_iMaxElements, 4u);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(c.m_pData[i], std::complex<double>(0.0, 0.0));
}

TEST(Matrix, CopiesAreDeepAndCompareByShapeAndValues) {
    Matrix<double> a(1, 3);
    a.Zero();
    a.m_pData[2] = 7.0;
    Matrix<double> b(a);
    EXPECT_NE(a.m_pData, b.m_pData);
    EXPECT_TRUE(a == b);
    b.m_pData[0] = 1.0;
    EXPECT_TRUE(a != b);
    Matrix<double> c(3, 1);
    c.Zero();
    c.m_pData[2] = 7.0;
    EXPECT_FALSE(a.IsSizeEqual(c));
    c = a;
    EXPECT_TRUE(c == a);
}
