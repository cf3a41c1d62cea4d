// ModelTables: the electrical tables of a [Model]: its voltage range or
// reference voltages, the I-V tables ([Pulldown], [Pullup], [GND Clamp],
// [POWER Clamp]) with their rows and voltage spans, [Ramp], and the
// [Rising Waveform] / [Falling Waveform] tables with their fixtures and
// their agreement with [Ramp].
#pragma once

#include <optional>
#include <string>

#include "tools/ibischeck/RuleSet.h"

namespace ibischeck {

class ModelTables : public RuleSet {
public:
    ModelTables(const std::string& shown, ibis::Report& report) : RuleSet(shown, report) {}

    // The model's supply voltage (typ), 0 when none can be read.
    double CheckVoltageRange(const IbisBlock& b);
    // vcc: the supply voltage the table's span is judged against.
    void CheckIvTable(const ibis::IbisSection& s, double vcc);
    void CheckRamp(const IbisBlock& b);
    // A waveform table; when its fixture is R_load tied to rampRail (the
    // rail the [Ramp] load goes to for this edge), its 20-80 % slope must
    // agree with [Ramp] within 20 %.
    void CheckWaveform(const ibis::IbisSection& s, const ibis::IbisSection* ramp, std::optional<double> rampRail);
};

}  // namespace ibischeck
