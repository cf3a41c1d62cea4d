// Prbs: pseudo-random binary sequences PRBS7, PRBS15, PRBS23 and PRBS31, the
// test patterns of ITU-T O.150, from a Fibonacci linear-feedback shift
// register x^n + x^m + 1 seeded with all ones.
//
// The sequence obeys s[k] = s[k-m] xor s[k-n] and starts with the seed, so
// PRBS7 reads FE 04 18 51 E4 ... when packed most significant bit first.
// Each sequence repeats after 2^n - 1 bits.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace amihost {

class Prbs {
public:
    // order is 7, 15, 23 or 31; anything else throws std::invalid_argument.
    explicit Prbs(int order);

    int Order() const { return m_iOrder; }
    // 2^n - 1.
    uint64_t Period() const { return (uint64_t{1} << m_iOrder) - 1; }

    // The next bit of the sequence (0 or 1).
    int Next();
    // The next count bits.
    std::vector<uint8_t> Bits(size_t count);

    // The orders supported, in increasing order.
    static const std::vector<int>& Orders();

private:
    int m_iOrder;        // n, the register length
    int m_iTap;          // m, the inner feedback tap
    uint32_t m_uState;   // bit i holds s[k+i]: the next n output bits, oldest in bit 0
};

}  // namespace amihost
