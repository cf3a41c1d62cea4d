// Prbs: Fibonacci LFSR pattern generator (ITU-T O.150 polynomials).
#include "tools/signal/Prbs.h"

#include <stdexcept>
#include <string>

namespace amihost {

namespace {

// Inner tap m of x^n + x^m + 1 for each supported n.
int TapFor(int order) {
    switch (order) {
        case 7: return 6;
        case 15: return 14;
        case 23: return 18;
        case 31: return 28;
        default:
            throw std::invalid_argument("PRBS order must be 7, 15, 23 or 31, not " + std::to_string(order));
    }
}

}  // namespace

Prbs::Prbs(int order)
    : m_iOrder(order), m_iTap(TapFor(order)), m_uState(static_cast<uint32_t>((uint64_t{1} << order) - 1)) {}

// The register holds s[k] ... s[k+n-1]; emitting s[k] makes room for
// s[k+n] = s[k+n-m] xor s[k], i.e. register bits n-m and 0.
int Prbs::Next() {
    const uint32_t out = m_uState & 1u;
    const uint32_t fed = ((m_uState >> (m_iOrder - m_iTap)) ^ m_uState) & 1u;
    m_uState = (m_uState >> 1) | (fed << (m_iOrder - 1));
    return static_cast<int>(out);
}

std::vector<uint8_t> Prbs::Bits(size_t count) {
    std::vector<uint8_t> bits(count);
    for (auto& b : bits) b = static_cast<uint8_t>(Next());
    return bits;
}

const std::vector<int>& Prbs::Orders() {
    static const std::vector<int> orders{7, 15, 23, 31};
    return orders;
}

}  // namespace amihost
