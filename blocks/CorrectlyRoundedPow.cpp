// CorrectlyRoundedPow: g^(1/S) to the nearest double.
//
// S = 2 is the IEEE square root, exactly rounded in hardware everywhere.
// Other S use Ziv's strategy: evaluate exp(y log g) in multi-double
// arithmetic (a value held as the unevaluated sum of 2, 3, then 4 doubles,
// about 104, 156, 208 bits) with an error bound, and accept the nearest
// double once the whole error interval lies between the two rounding
// midpoints around it. Sums are kept exactly as nonoverlapping expansions
// and compressed afterwards (J. R. Shewchuk, "Adaptive precision
// floating-point arithmetic and fast robust geometric predicates", 1997);
// products split with Dekker's method, so no FMA is needed.
//
// log: g = 2^e m, m in [sqrt(1/2), sqrt(2)), log m = 2 atanh((m - 1)/(m + 1))
// by its odd power series; ln 2 = 2 atanh(1/3) the same way.
// exp: t = k ln 2 + r, exp(r) = exp(r / 256)^256 with a Taylor series.
#include "blocks/CorrectlyRoundedPow.h"

#include <cmath>
#include <cstdlib>
#include <initializer_list>
#include <limits>

namespace TesselModelBuilder {

namespace {

constexpr int kMaxLimbs = 4;

struct TwoDouble {
    double hi;
    double lo;  // hi + lo is exact
};

TwoDouble TwoSum(double a, double b) {
    const double s = a + b;
    const double bb = s - a;
    return {s, (a - (s - bb)) + (b - bb)};
}

TwoDouble FastTwoSum(double a, double b) {  // |a| >= |b|
    const double s = a + b;
    return {s, b - (s - a)};
}

TwoDouble TwoProd(double a, double b) {
    constexpr double kSplitter = 134217729.0;  // 2^27 + 1
    const double p = a * b;
    const double ta = kSplitter * a, tb = kSplitter * b;
    const double ah = ta - (ta - a), al = a - ah;
    const double bh = tb - (tb - b), bl = b - bh;
    return {p, ((ah * bh - p) + ah * bl + al * bh) + al * bl};
}

// A number to working precision: limb[0] + limb[1] + ..., largest first,
// nonoverlapping; limbs past the precision in use are zero.
struct Multi {
    double limb[kMaxLimbs] = {0.0, 0.0, 0.0, 0.0};
};

// An exact sum of doubles: components nonoverlapping, smallest first.
class Exact {
  public:
    void Add(double b) {
        if (b == 0.0) return;
        double q = b;
        int k = 0;
        for (int i = 0; i < m_n; ++i) {
            const TwoDouble s = TwoSum(q, m_e[i]);
            q = s.hi;
            if (s.lo != 0.0) m_e[k++] = s.lo;
        }
        if (q != 0.0) m_e[k++] = q;
        m_n = k;
        if (m_n == kCapacity) std::abort();  // more terms than any operation below adds
    }
    void Add(const Multi& a, double sign, int limbs) {
        for (int i = 0; i < limbs; ++i) Add(sign * a.limb[i]);
    }
    void AddProduct(double a, double b) {
        const TwoDouble p = TwoProd(a, b);
        Add(p.hi);
        Add(p.lo);
    }

    // The largest `limbs` components after compression: each compressed
    // component is below one unit in the last place of the next larger, so
    // what is cut off is below 2^-52 of the last limb kept.
    Multi Round(int limbs) const {
        double g[kCapacity];
        double h[kCapacity];
        Multi r;
        if (m_n == 0) return r;
        int bottom = m_n - 1;
        double Q = m_e[m_n - 1];
        for (int i = m_n - 2; i >= 0; --i) {
            const TwoDouble s = FastTwoSum(Q, m_e[i]);
            Q = s.hi;
            if (s.lo != 0.0) {
                g[bottom--] = Q;
                Q = s.lo;
            }
        }
        g[bottom] = Q;
        int top = 0;
        for (int i = bottom + 1; i < m_n; ++i) {
            const TwoDouble s = FastTwoSum(g[i], Q);
            Q = s.hi;
            if (s.lo != 0.0) h[top++] = s.lo;
        }
        h[top++] = Q;
        for (int i = 0; i < limbs && i < top; ++i) r.limb[i] = h[top - 1 - i];
        return r;
    }

  private:
    static constexpr int kCapacity = 96;
    double m_e[kCapacity];
    int m_n = 0;
};

Multi FromDouble(double a) {
    Multi r;
    r.limb[0] = a;
    return r;
}

Multi Add(const Multi& a, const Multi& b, int n, double sign = 1.0) {
    Exact e;
    e.Add(a, 1.0, n);
    e.Add(b, sign, n);
    return e.Round(n);
}

// Products a_i b_j with i + j > n lie below the precision and are left out.
Multi Mul(const Multi& a, const Multi& b, int n) {
    Exact e;
    for (int i = 0; i < n; ++i)
        for (int j = 0; i + j <= n && j < n; ++j) e.AddProduct(a.limb[i], b.limb[j]);
    return e.Round(n);
}

Multi Mul(const Multi& a, double b, int n) {
    Exact e;
    for (int i = 0; i < n; ++i) e.AddProduct(a.limb[i], b);
    return e.Round(n);
}

// Long division, one limb of quotient at a time, remainder kept exactly.
Multi Div(const Multi& a, const Multi& b, int n) {
    Exact quotient;
    Multi rest = a;
    for (int k = 0; k <= n; ++k) {
        const double q = rest.limb[0] / b.limb[0];
        quotient.Add(q);
        Exact e;
        e.Add(rest, 1.0, n);
        for (int j = 0; j < n; ++j) e.AddProduct(-q, b.limb[j]);
        rest = e.Round(n);
        if (rest.limb[0] == 0.0) break;
    }
    return quotient.Round(n);
}

Multi Scale(const Multi& a, int exponent) {
    Multi r;
    for (int i = 0; i < kMaxLimbs; ++i) r.limb[i] = std::ldexp(a.limb[i], exponent);
    return r;
}

// atanh(s) = s + s^3/3 + s^5/5 + ..., until a term no longer counts.
Multi Atanh(const Multi& s, int n) {
    const double negligible = std::ldexp(1.0, -53 * n - 8);
    const Multi s2 = Mul(s, s, n);
    Multi power = s;
    Multi sum = s;
    for (int k = 1;; ++k) {
        power = Mul(power, s2, n);
        const Multi term = Div(power, FromDouble(2.0 * k + 1.0), n);
        sum = Add(sum, term, n);
        if (std::fabs(term.limb[0]) <= negligible * std::fabs(sum.limb[0])) return sum;
    }
}

const Multi& Ln2() {
    static const Multi ln2 = Scale(Atanh(Div(FromDouble(1.0), FromDouble(3.0), kMaxLimbs), kMaxLimbs), 1);
    return ln2;
}

Multi Log(double x, int n) {
    int e = 0;
    double m = std::frexp(x, &e);
    if (m < 0.7071067811865476) {
        m = m * 2.0;
        e = e - 1;
    }
    Exact above;  // m + 1 needs 54 bits
    above.Add(m);
    above.Add(1.0);
    const Multi s = Div(FromDouble(m - 1.0), above.Round(n), n);
    return Add(Mul(Ln2(), static_cast<double>(e), n), Scale(Atanh(s, n), 1), n);
}

Multi Exp(const Multi& t, int n) {
    constexpr int kHalvings = 8;
    const double k = std::floor(t.limb[0] / Ln2().limb[0] + 0.5);
    const Multi r = Scale(Add(t, Mul(Ln2(), k, n), n, -1.0), -kHalvings);
    const double negligible = std::ldexp(1.0, -53 * n - 8);
    Multi term = r;
    Multi sum = Add(FromDouble(1.0), r, n);
    for (int i = 2;; ++i) {
        term = Div(Mul(term, r, n), FromDouble(i), n);
        sum = Add(sum, term, n);
        if (std::fabs(term.limb[0]) <= negligible) break;
    }
    for (int i = 0; i < kHalvings; ++i) sum = Mul(sum, sum, n);
    return Scale(sum, static_cast<int>(k));
}

// True when every value within `error` (absolute) of z rounds to c: the
// distance from z to each midpoint next to c, computed exactly, exceeds it.
bool RoundsTo(const Multi& z, double c, double error, int n) {
    const double below = (c - std::nextafter(c, 0.0)) * 0.5;
    const double above = (std::nextafter(c, std::numeric_limits<double>::infinity()) - c) * 0.5;
    Exact low;  // z - (c - below)
    low.Add(z, 1.0, n);
    low.Add(-c);
    low.Add(below);
    Exact high;  // (c + above) - z
    high.Add(c);
    high.Add(above);
    high.Add(z, -1.0, n);
    return low.Round(1).limb[0] > error && high.Round(1).limb[0] > error;
}

}  // namespace

double CorrectlyRoundedPowOneOver(double g, size_t S) {
    if (S == 0) return std::numeric_limits<double>::quiet_NaN();
    if (S == 1 || std::isnan(g)) return g;
    if (g == 0.0) return 0.0;
    if (std::isinf(g)) return std::numeric_limits<double>::infinity();
    if (g < 0.0) return (g - g) / (g - g);  // the invalid operation's NaN, as pow gives
    if (S == 2) return std::sqrt(g);
    if (g == 1.0) return 1.0;

    const double y = 1.0 / static_cast<double>(S);
    double nearest = 0.0;
    for (int n = 2; n <= kMaxLimbs; ++n) {
        const Multi z = Exp(Mul(Log(g, n), y, n), n);
        // log, the product and exp each keep about 53 n - 10 bits; |t| < 745
        // costs ten more. 2^(24 - 52 n) bounds the relative error with room.
        const double error = std::fabs(z.limb[0]) * std::ldexp(1.0, 24 - 52 * n);
        nearest = z.limb[0] + z.limb[1];
        for (double c : {nearest, std::nextafter(nearest, 0.0),
                         std::nextafter(nearest, std::numeric_limits<double>::infinity())})
            if (RoundsTo(z, c, error, n)) return c;
    }
    // Within 2^-184 of a midpoint: no such argument is known; the nearest
    // double of the most precise evaluation is the answer then.
    return nearest;
}

}  // namespace TesselModelBuilder
