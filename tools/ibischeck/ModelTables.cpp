// ModelTables: rows, spans and slopes of a model's tables.
#include "tools/ibischeck/ModelTables.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <optional>
#include <set>
#include <utility>
#include <vector>


namespace ibischeck {


namespace {

const size_t kMaxIvRows = 100;
const size_t kMaxWaveformRows = 1000;

std::string Num(double v) {
    char buf[32];
    snprintf(buf, sizeof buf, "%g", v);
    return buf;
}

// "0.57/0.29n" as a slope in V/s; nothing when malformed.
std::optional<double> Slope(const std::string& token) {
    const size_t slash = token.find('/');
    if (slash == std::string::npos) return std::nullopt;
    std::optional<double> dv = IbisNumber::Parse(token.substr(0, slash));
    std::optional<double> dt = IbisNumber::Parse(token.substr(slash + 1));
    if (!dv || !dt || *dt <= 0) return std::nullopt;
    return *dv / *dt;
}

// Time at which the waveform first crosses level, linearly interpolated.
double Crossing(const std::vector<std::pair<double, double>>& w, double level) {
    for (size_t i = 1; i < w.size(); ++i) {
        const double a = w[i - 1].second - level, b = w[i].second - level;
        if ((a <= 0 && b >= 0) || (a >= 0 && b <= 0)) {
            if (a == b) return w[i - 1].first;
            return w[i - 1].first + (w[i].first - w[i - 1].first) * (a / (a - b));
        }
    }
    return w.back().first;
}

}  // namespace

double ModelTables::CheckVoltageRange(const IbisBlock& b) {
    const IbisSection* range = b.Find("voltage range");
    const IbisSection* up = b.Find("pullup reference");
    const IbisSection* down = b.Find("pulldown reference");
    const IbisSection* source = range != nullptr ? range : up;
    if (source == nullptr || (range == nullptr && down == nullptr)) {
        Error(b.pOpener->nLine, "model " + b.pOpener->sArgs +
                                    " has neither [Voltage Range] nor [Pullup Reference] and [Pulldown Reference]");
        return 0;
    }
    Tmm v;
    const std::string why = ParseTmm(source->vArgs, 0, v);
    if (!why.empty()) {
        Error(source->nLine, "[" + source->sWritten + "] " + why);
        return 0;
    }
    return v.dTyp;
}

void ModelTables::CheckIvTable(const IbisSection& s, double vcc) {
    const std::string k = "[" + s.sWritten + "]";
    if (s.vBody.size() > kMaxIvRows) Error(s.nLine, k + " has more than 100 rows");
    std::vector<double> volts;
    for (const IbisLine& l : s.vBody) {
        if (Lower(l.vTokens[0]) == "voltage") continue;
        Tmm current;
        std::optional<double> v = IbisNumber::Parse(l.vTokens[0]);
        if (l.vTokens.size() != 4 || !v) {
            Error(l.nLine, k + " row needs a voltage, I(typ), I(min) and I(max)");
            continue;
        }
        const std::string why = ParseTmm(l.vTokens, 1, current);
        if (!why.empty()) {
            Error(l.nLine, k + " current " + why);
            continue;
        }
        if (!volts.empty() && *v <= volts.back())
            Error(l.nLine, k + " voltage " + l.vTokens[0] + " does not increase over the row before");
        volts.push_back(*v);
    }
    if (volts.empty() || vcc <= 0) return;
    // Pullup and POWER Clamp voltages are measured from the supply; the
    // drivers' tables span -Vcc to 2 Vcc, the clamps' -Vcc to Vcc.
    const bool driver = s.sKeyword == "pulldown" || s.sKeyword == "pullup";
    const double low = -vcc, high = driver ? 2 * vcc : vcc;
    const double slack = 1e-9 * vcc;
    const double lo = *std::min_element(volts.begin(), volts.end());
    const double hi = *std::max_element(volts.begin(), volts.end());
    if (lo > low + slack || hi < high - slack)
        Warning(s.nLine, k + " spans " + Num(lo) + " V to " + Num(hi) + " V, short of " + Num(low) + " V to " +
                             Num(high) + " V (" + (driver ? "-Vcc to 2 Vcc" : "-Vcc to Vcc") + ")");
}

void ModelTables::CheckRamp(const IbisBlock& b) {
    const IbisSection& s = *b.Find("ramp");
    std::set<std::string> found;
    for (const IbisLine& l : s.vBody) {
        const std::vector<std::string> t = IbisLexer::SplitAssignment(l.sText);
        const std::string key = t.empty() ? "" : Lower(t[0]);
        if (key == "variable" || t.empty()) continue;
        if (key == "r_load") {
            if (t.size() != 2 || !IbisNumber::Parse(t[1])) Error(l.nLine, "[Ramp] R_load must be one number");
            continue;
        }
        if (key != "dv/dt_r" && key != "dv/dt_f") {
            Error(l.nLine, "[Ramp] does not take " + t[0]);
            continue;
        }
        found.insert(key);
        if (t.size() != 4) {
            Error(l.nLine, "[Ramp] " + t[0] + " needs typ, min and max values");
            continue;
        }
        for (size_t i = 1; i < 4; ++i)
            if (!(i > 1 && IbisNumber::IsNA(t[i])) && !Slope(t[i]))
                Error(l.nLine, "[Ramp] " + t[0] + " value " + t[i] + " is not of the form dV/dt");
    }
    for (const char* k : {"dV/dt_r", "dV/dt_f"})
        if (found.count(Lower(k)) == 0) Error(s.nLine, std::string("[Ramp] has no ") + k);
}

void ModelTables::CheckWaveform(const IbisSection& s, const IbisSection* ramp, std::optional<double> rampRail) {
    const std::string k = "[" + s.sWritten + "]";
    std::map<std::string, double> fixture;
    std::vector<std::pair<double, double>> wave;  // time (s), V(typ)
    for (const IbisLine& l : s.vBody) {
        const std::vector<std::string> t = IbisLexer::SplitAssignment(l.sText);
        if (t.empty()) continue;
        if (!IbisNumber::Parse(t[0])) {
            const std::string key = Lower(t[0]);
            if (key == "time") continue;
            std::optional<double> v = t.size() == 2 ? IbisNumber::Parse(t[1]) : std::nullopt;
            if (!v) Error(l.nLine, k + " " + t[0] + " must be one number");
            else fixture[key] = *v;
            continue;
        }
        Tmm v;
        const std::string why = t.size() == 4 ? ParseTmm(t, 1, v) : "row needs a time, V(typ), V(min) and V(max)";
        if (!why.empty()) {
            Error(l.nLine, k + " " + why);
            continue;
        }
        const double time = *IbisNumber::Parse(t[0]);
        if (!wave.empty() && time <= wave.back().first)
            Error(l.nLine, k + " time " + t[0] + " does not increase over the row before");
        wave.emplace_back(time, v.dTyp);
    }
    for (const char* f : {"R_fixture", "V_fixture"})
        if (fixture.count(Lower(f)) == 0) Error(s.nLine, k + " has no " + f);
    if (wave.size() > kMaxWaveformRows) Error(s.nLine, k + " has more than 1000 rows");
    if (ramp == nullptr || wave.size() < 2 || fixture.count("r_fixture") == 0 || !rampRail ||
        fixture.count("v_fixture") == 0 || std::fabs(fixture["v_fixture"] - *rampRail) > 1e-3 * (1 + std::fabs(*rampRail)))
        return;

    // [Ramp] gives the 20 % to 80 % swing over its time, measured into
    // R_load (50 ohm unless stated) tied to rampRail; a waveform into the
    // same load must agree.
    const bool rising = s.sKeyword == "rising waveform";
    double rLoad = 50;
    std::optional<double> rampSlope;
    for (const IbisLine& l : ramp->vBody) {
        const std::vector<std::string> t = IbisLexer::SplitAssignment(l.sText);
        const std::string key = t.empty() ? "" : Lower(t[0]);
        if (key == "r_load" && t.size() == 2 && IbisNumber::Parse(t[1])) rLoad = *IbisNumber::Parse(t[1]);
        if (key == (rising ? "dv/dt_r" : "dv/dt_f") && t.size() > 1) rampSlope = Slope(t[1]);
    }
    if (!rampSlope || std::fabs(fixture["r_fixture"] - rLoad) > 1e-9 * rLoad) return;
    const double v0 = wave.front().second, swing = wave.back().second - v0;
    const double dt = Crossing(wave, v0 + 0.8 * swing) - Crossing(wave, v0 + 0.2 * swing);
    if (dt <= 0 || swing == 0) return;
    const double slope = 0.6 * std::fabs(swing) / dt;
    if (std::fabs(*rampSlope - slope) > 0.2 * slope)
        Warning(s.nLine, k + " rises 20-80 % at " + Num(slope * 1e-9) + " V/ns, [Ramp] " +
                             (rising ? "dV/dt_r" : "dV/dt_f") + " says " + Num(*rampSlope * 1e-9) +
                             " V/ns: more than 20 % apart");
}

}  // namespace ibischeck
