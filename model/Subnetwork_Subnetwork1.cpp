// KV2_RX::Subnetwork_Subnetwork1: the CTLE bank's sixteen transfer functions
// and the parameters of its routing blocks.
//
// Each setting k is H(s) = gain * (s - z) / ((s - p1)(s - p2)(s - p3)), s in
// rad/s, with p2 = p3 (a double pole). The DC gain stays near one half while
// the peaking grows with the setting. The values are stored exactly as
// designed, to the last digit.
#include "model/KV2_RX.h"

#include <cstddef>

namespace TesselModelBuilder {

namespace {

using Bank = KV2_RX::Subnetwork_Subnetwork1;

struct CtleRow {
    double gain;
    double poles[3];  // rad/s, in this order
    double zero[1];   // rad/s
};

const CtleRow kCtleRows[Bank::kNumFilters] = {
    {2.474715933435302e+21, {-43324029256.126625, -43488494536.432076, -43488494536.432076}, {-16113544486.629667}},  // setting 0
    {6.621960664120328e+21, {-60426534834.64518, -60361959054.89788, -60361959054.89788}, {-16272426330.289875}},  // setting 1
    {1.1408111880799817e+22, {-70642519552.5008, -68929048163.26932, -68929048163.26932}, {-14508305629.456228}},  // setting 2
    {1.344216428458356e+22, {-68374377594.08407, -67619681929.740906, -67619681929.740906}, {-11518429460.13285}},  // setting 3
    {1.5317656602024188e+22, {-67172916678.823494, -66967051465.48886, -66967051465.48886}, {-9762219368.038774}},  // setting 4
    {1.751832057693429e+22, {-66705043350.443344, -66703626805.35099, -66703626805.35099}, {-8452586097.84822}},  // setting 5
    {1.8622650878688378e+22, {-65437303092.756905, -64803316832.30909, -64803316832.30909}, {-7392399378.972589}},  // setting 6
    {2.0519274177800037e+22, {-65168480364.8459, -64559732357.31558, -64559732357.31558}, {-6646618872.582765}},  // setting 7
    {2.1889791399722305e+22, {-63882733945.41437, -64164321772.78504, -64164321772.78504}, {-6053946916.316615}},  // setting 8
    {2.3846021562242813e+22, {-63691167946.633286, -64332290733.322, -64332290733.322}, {-5592187686.702368}},  // setting 9
    {2.347861293690296e+22, {-61590281006.46078, -61595603588.91071, -61595603588.91071}, {-5045602487.916522}},  // setting 10
    {2.7691532723703855e+22, {-66510368310.30014, -62566608527.605316, -62566608527.605316}, {-4771050581.462967}},  // setting 11
    {2.8617485907657648e+22, {-57670682630.23383, -66222085478.77502, -66222085478.77502}, {-4549577430.959268}},  // setting 12
    {2.8530429609796027e+22, {-61259906857.13028, -62050945025.40035, -62050945025.40035}, {-4248687409.770487}},  // setting 13
    {2.8966423040967494e+22, {-61947822989.08587, -60015773519.02865, -60015773519.02865}, {-3981962643.791301}},  // setting 14
    {3.2089216175319944e+22, {-58070059211.42627, -63959662413.519035, -63959662413.519035}, {-3871711421.571445}},  // setting 15
};

SDomainIIR Bank::* const kFilters[Bank::kNumFilters] = {&Bank::S0, &Bank::S1, &Bank::S2, &Bank::S3, &Bank::S4, &Bank::S5, &Bank::S6, &Bank::S7, &Bank::S8, &Bank::S9, &Bank::S10, &Bank::S11, &Bank::S12, &Bank::S13, &Bank::S14, &Bank::S15};

// Give `matrix` the shape rows x columns and fill it from `values`, zeroing
// any element beyond them.
template <typename T>
void Fill(Matrix<T>& matrix, size_t rows, size_t columns, const T* values, size_t count) {
    const size_t dimensions[2] = {rows, columns};
    matrix.ResizeMultidimensional(2, dimensions);
    for (size_t i = 0; i < matrix.m_iNumElements; ++i) matrix.m_pData[i] = i < count ? values[i] : T(0);
}

}  // namespace

SDomainIIR& Bank::Filter(int k) { return this->*kFilters[k]; }

Bank::~Subnetwork_Subnetwork1() { delete[] corner; }

bool Bank::Setup() {
    for (int k = 0; k < kNumFilters; ++k) {
        SDomainIIR& filter = Filter(k);
        const CtleRow& row = kCtleRows[k];
        filter.m_SampleRate = SampleRate;
        filter.m_Gain = row.gain;
        filter.m_FreqUnit = SDomainIIR::eRad;
        Fill(filter.m_RealPoles, 1, 3, row.poles, 3);
        Fill<std::complex<double>>(filter.m_ComplexConjugatePoles, 0, 0, nullptr, 0);
        Fill(filter.m_RealZeros, 1, 1, row.zero, 1);
        Fill<std::complex<double>>(filter.m_ComplexConjugateZeros, 0, 0, nullptr, 0);
    }

    C9.m_iInitialDelay = 0;
    M9.BlockSize = 1;
    C9.Value = static_cast<double>(CTLE_setting);
    if (M9.input.m_iSize != static_cast<uint64_t>(kNumFilters)) M9.input.Initialize(kNumFilters);
    const bool ok = M9.Setup();
    if (input_output.output.m_iSize != static_cast<uint64_t>(kNumFilters))
        input_output.output.Initialize(kNumFilters);
    return ok;
}

}  // namespace TesselModelBuilder
