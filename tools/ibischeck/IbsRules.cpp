// IbsRules: header, component, model, package model and board rules.
#include "tools/ibischeck/IbsRules.h"

#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <set>

#include "tools/base/Text.h"
#include "tools/ibis/IbisNumber.h"
#include "tools/ibis/IbsModel.h"

namespace ibischeck {


namespace {

const std::set<std::string> kHeaderKeywords = {"ibis ver", "comment char", "file name", "file rev", "date",
                                               "source", "notes", "disclaimer", "copyright"};

// Keywords that open a top-level block.
const std::set<std::string> kOpeners = {"component", "model selector", "model", "submodel",
                                        "define package model", "begin board description",
                                        "external circuit", "test data", "test load", "end"};

const std::set<std::string> kIbisVersions = {"1.1", "2.0", "2.1", "3.0", "3.1", "3.2", "4.0", "4.1",
                                             "4.2", "5.0", "5.1", "6.0", "6.1", "7.0", "7.1", "7.2"};

const std::set<std::string> kModelTypes = {
    "input", "output", "i/o", "3-state", "open_drain", "i/o_open_drain", "open_sink", "i/o_open_sink",
    "open_source", "i/o_open_source", "input_ecl", "output_ecl", "i/o_ecl", "3-state_ecl", "terminator",
    "series", "series_switch", "input_diff", "output_diff", "i/o_diff", "3-state_diff"};

const std::set<std::string> kInputTypes = {"input",     "i/o",     "i/o_open_drain", "i/o_open_sink",
                                           "i/o_open_source", "input_ecl", "i/o_ecl", "input_diff", "i/o_diff"};
// Drivers that pull both ways, only down, only up.
const std::set<std::string> kPushPull = {"output", "i/o", "3-state", "output_ecl", "i/o_ecl", "3-state_ecl",
                                         "output_diff", "i/o_diff", "3-state_diff"};
const std::set<std::string> kSinks = {"open_drain", "i/o_open_drain", "open_sink", "i/o_open_sink"};
const std::set<std::string> kSources = {"open_source", "i/o_open_source"};


bool FileExists(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

}  // namespace

IbsRules::IbsRules(const std::string& path, const std::string& shown, Report& report)
    : RuleSet(shown, report), m_sPath(path), m_tables(shown, report), m_packages(shown, report) {
    const size_t slash = path.rfind('/');
    m_sFolder = slash == std::string::npos ? "." : path.substr(0, slash);
    const size_t dot = path.rfind('.');
    m_sExtension = dot == std::string::npos ? "" : Lower(path.substr(dot));
}

void IbsRules::Check(const std::vector<IbisSection>& sections) {
    std::vector<const IbisSection*> header;
    std::vector<Block> blocks;
    for (const IbisSection& s : sections) {
        if (!IbisLexer::IsKeyword(s.sKeyword)) Warning(s.nLine, "unknown keyword [" + s.sWritten + "]");
        if (kOpeners.count(s.sKeyword) != 0) {
            blocks.push_back(Block{&s, {}});
        } else if (blocks.empty()) {
            header.push_back(&s);
        } else {
            if (kHeaderKeywords.count(s.sKeyword) != 0 && s.sKeyword != "comment char")
                Error(s.nLine, "[" + s.sWritten + "] belongs in the header, before [" + blocks[0].pOpener->sWritten + "]");
            blocks.back().vMembers.push_back(&s);
        }
    }
    CheckHeader(sections, header);

    // Names first: a [Pin] may name a model defined further down.
    for (const Block& b : blocks) {
        const std::string& k = b.pOpener->sKeyword;
        if (k != "model" && k != "model selector" && k != "submodel") continue;
        const std::string name = b.pOpener->sArgs;
        if (name.empty()) {
            Error(b.pOpener->nLine, "[" + b.pOpener->sWritten + "] has no name");
            continue;
        }
        std::map<std::string, int>& names = k == "submodel" ? m_mSubmodels : m_mModels;
        if (names.count(Lower(name)) != 0)
            Error(b.pOpener->nLine, (k == "submodel" ? "submodel " : "model ") + name +
                                        " is defined twice (first on line " + std::to_string(names[Lower(name)]) + ")");
        else
            names[Lower(name)] = b.pOpener->nLine;
        if (k == "model selector") m_sSelectors.insert(Lower(name));
    }

    int components = 0, packages = 0, boards = 0;
    for (size_t i = 0; i < blocks.size(); ++i) {
        const Block& b = blocks[i];
        const std::string& k = b.pOpener->sKeyword;
        if (k == "component") ++components, CheckComponent(b);
        else if (k == "model selector") CheckModelSelector(b);
        else if (k == "model") CheckModel(b);
        else if (k == "submodel") CheckSubmodel(b);
        else if (k == "define package model") ++packages, m_packages.CheckPackageModel(b);
        else if (k == "begin board description") ++boards, m_packages.CheckBoard(b);
        else if (k == "end" && (i + 1 < blocks.size() || !b.vMembers.empty()))
            Error(b.pOpener->nLine, "keywords follow [End]");
    }
    const int last = sections.empty() ? 0 : sections.back().nLine;
    bool end = false;
    for (const Block& b : blocks) end = end || b.pOpener->sKeyword == "end";
    if (!end) Error(last, "[End] is missing");
    if (m_sExtension == ".ibs" && components == 0) Error(last, "no [Component] in the file");
    if (m_sExtension == ".pkg" && packages == 0) Error(last, "no [Define Package Model] in the file");
    if (m_sExtension == ".ebd" && boards == 0) Error(last, "no [Begin Board Description] in the file");
}

void IbsRules::CheckHeader(const std::vector<IbisSection>& sections, const std::vector<const IbisSection*>& header) {
    if (sections.empty()) {
        Error(0, "no keywords in the file");
        return;
    }
    if (sections[0].sKeyword != "ibis ver")
        Error(sections[0].nLine, "[IBIS Ver] must be the first keyword");
    std::map<std::string, int> seen;
    for (const IbisSection* s : header) {
        if (seen.count(s->sKeyword) != 0 && s->sKeyword != "comment char")
            Error(s->nLine, "[" + s->sWritten + "] appears twice in the header");
        seen[s->sKeyword] = s->nLine;
        if (s->sKeyword == "ibis ver" && kIbisVersions.count(s->sArgs) == 0)
            Error(s->nLine, "[IBIS Ver] " + s->sArgs + " is not a known IBIS version");
        if (s->sKeyword == "file name") {
            const size_t slash = m_sPath.rfind('/');
            const std::string base = slash == std::string::npos ? m_sPath : m_sPath.substr(slash + 1);
            if (s->sArgs != Lower(s->sArgs)) Error(s->nLine, "[File Name] " + s->sArgs + " must be lower case");
            if (s->sArgs != base) Error(s->nLine, "[File Name] " + s->sArgs + " does not match the file name " + base);
        }
    }
    const int at = sections[0].nLine;
    for (const char* required : {"ibis ver", "file name", "file rev"})
        if (seen.count(required) == 0) {
            std::string written = required;
            if (written == "ibis ver") written = "IBIS Ver";
            else if (written == "file name") written = "File Name";
            else written = "File Rev";
            Error(at, "[" + written + "] is missing from the header");
        }
}

void IbsRules::CheckComponent(const Block& b) {
    const IbisSection& c = *b.pOpener;
    const std::string name = c.sArgs;
    if (name.empty()) Error(c.nLine, "[Component] has no name");
    CheckName("[Component]", name, 40, c.nLine);
    if (b.Find("manufacturer") == nullptr) Error(c.nLine, "[Component] " + name + " has no [Manufacturer]");
    // [Package] stays required with a [Package Model]: simulators without
    // package-model support fall back to it.
    const IbisSection* package = b.Find("package");
    if (package == nullptr)
        Error(c.nLine, "[Component] " + name + " has no [Package]");
    else
        m_packages.CheckPackage(*package);
    std::map<std::string, int> pins;
    const IbisSection* pin = b.Find("pin");
    if (pin == nullptr)
        Error(c.nLine, "[Component] " + name + " has no [Pin]");
    else
        CheckPins(*pin, pins);
    if (const IbisSection* diff = b.Find("diff pin")) m_packages.CheckDiffPins(*diff, pins);
}

void IbsRules::CheckPins(const IbisSection& s, std::map<std::string, int>& pins) {
    // The keyword line names the columns: signal_name model_name, optionally
    // R_pin L_pin C_pin. A row without its own R, L and C takes [Package]'s.
    const size_t columns = s.vArgs.size() >= 5 ? 6 : 3;
    for (const IbisLine& l : s.vBody) {
        const std::vector<std::string>& t = l.vTokens;
        if (t.size() != columns && t.size() != 3) {
            Error(l.nLine, "[Pin] row has " + std::to_string(t.size()) + " columns, expected " + std::to_string(columns));
            continue;
        }
        CheckName("pin", t[0], 5, l.nLine);
        CheckName("signal", t[1], 40, l.nLine);
        CheckName("model", t[2], 40, l.nLine);
        if (pins.count(t[0]) != 0) Error(l.nLine, "pin " + t[0] + " is listed twice in [Pin]");
        pins[t[0]] = l.nLine;
        const std::string model = Lower(t[2]);
        if (model != "power" && model != "gnd" && model != "nc" && m_mModels.count(model) == 0)
            Error(l.nLine, "pin " + t[0] + " names model " + t[2] + ", which is not defined");
        for (size_t i = 3; i < t.size(); ++i)
            if (!IbisNumber::IsNA(t[i]) && !IbisNumber::Parse(t[i]))
                Error(l.nLine, "pin " + t[0] + ": " + t[i] + " is not a number");
    }
}

void IbsRules::CheckModelSelector(const Block& b) {
    const std::string self = Lower(b.pOpener->sArgs);
    for (const IbisLine& l : b.pOpener->vBody) {
        const std::string entry = Lower(l.vTokens[0]);
        if (entry == self)
            Error(l.nLine, "[Model Selector] " + b.pOpener->sArgs + " lists itself");
        else if (m_sSelectors.count(entry) != 0)
            Error(l.nLine, "[Model Selector] " + b.pOpener->sArgs + " lists [Model Selector] " + l.vTokens[0] +
                               ": its entries must be [Model]s");
        else if (m_mModels.count(entry) == 0)
            Error(l.nLine, "[Model Selector] names model " + l.vTokens[0] + ", which is not defined");
    }
}

void IbsRules::CheckModel(const Block& b) {
    const IbisSection& m = *b.pOpener;
    const std::string name = m.sArgs;
    CheckName("[Model]", name, 40, m.nLine);
    std::map<std::string, const IbisLine*> params;
    for (const IbisLine& l : m.vBody) {
        const std::vector<std::string> t = IbisLexer::SplitAssignment(l.sText);
        if (!t.empty()) params[Lower(t[0])] = &l;
    }
    std::string type;
    if (params.count("model_type") == 0) {
        Error(m.nLine, "model " + name + " has no Model_type");
    } else {
        const IbisLine& l = *params["model_type"];
        const std::vector<std::string> t = IbisLexer::SplitAssignment(l.sText);
        type = t.size() > 1 ? Lower(t[1]) : "";
        if (kModelTypes.count(type) == 0) {
            Error(l.nLine, "Model_type " + (t.size() > 1 ? t[1] : std::string()) + " is not an IBIS model type");
            type.clear();
        }
    }
    // IBIS 5.0 and later may split C_comp by the part of the buffer it belongs to.
    const bool split = params.count("c_comp_pullup") != 0 || params.count("c_comp_pulldown") != 0 ||
                       params.count("c_comp_power_clamp") != 0 || params.count("c_comp_gnd_clamp") != 0;
    if (params.count("c_comp") == 0 && !split && b.Find("c comp corner") == nullptr) {
        Error(m.nLine, "model " + name + " has no C_comp");
    } else if (params.count("c_comp") != 0) {
        const IbisLine& l = *params["c_comp"];
        Tmm v;
        const std::string why = ParseTmm(IbisLexer::SplitAssignment(l.sText), 1, v);
        if (!why.empty()) Error(l.nLine, "C_comp " + why);
        else if ((v.dMin && *v.dMin > v.dTyp) || (v.dMax && *v.dMax < v.dTyp))
            Error(l.nLine, "C_comp must satisfy min <= typ <= max");
    }
    // The terminations a receiver's load is built from: positive resistances
    // and capacitance, as any simulator (and amihost) requires.
    for (const IbisSection* t : b.vMembers) {
        const std::string& k = t->sKeyword;
        if (k != "rgnd" && k != "rpower" && k != "rac" && k != "cac") continue;
        Tmm v;
        const std::string why = ParseTmm(t->vArgs, 0, v);
        if (!why.empty()) Error(t->nLine, "[" + t->sWritten + "] " + why);
        else if (!(v.dTyp > 0) || (v.dMin && !(*v.dMin > 0)) || (v.dMax && !(*v.dMax > 0)))
            Error(t->nLine, "[" + t->sWritten + "] values must be positive");
        else if ((v.dMin && *v.dMin > v.dTyp) || (v.dMax && *v.dMax < v.dTyp))
            Error(t->nLine, "[" + t->sWritten + "] must satisfy min <= typ <= max");
    }
    if (kInputTypes.count(type) != 0) {
        const IbisSection* limits = b.Find(IbisLexer::Canonical("Model_Spec"));
        const bool thresholds = b.Find("receiver thresholds") != nullptr;
        for (const char* v : {"vinl", "vinh"}) {
            bool inSpec = false;
            if (limits != nullptr)
                for (const IbisLine& l : limits->vBody) inSpec = inSpec || Lower(l.vTokens[0]) == v;
            if (params.count(v) == 0 && !inSpec && !thresholds)
                Warning(m.nLine, "input model " + name + " has no " + (v[3] == 'l' ? "Vinl" : "Vinh") +
                                     "; the IBIS default applies");
        }
    }
    const double vcc = m_tables.CheckVoltageRange(b);
    for (const IbisSection* s : b.vMembers)
        if (s->sKeyword == "pulldown" || s->sKeyword == "pullup" || s->sKeyword == "gnd clamp" ||
            s->sKeyword == "power clamp")
            m_tables.CheckIvTable(*s, vcc);
    const bool pushPull = kPushPull.count(type) != 0, sink = kSinks.count(type) != 0,
               source = kSources.count(type) != 0;
    if ((pushPull || sink) && b.Find("pulldown") == nullptr) Error(m.nLine, "model " + name + " has no [Pulldown]");
    if ((pushPull || source) && b.Find("pullup") == nullptr) Error(m.nLine, "model " + name + " has no [Pullup]");
    const IbisSection* ramp = b.Find("ramp");
    if ((pushPull || sink || source) && ramp == nullptr) Error(m.nLine, "model " + name + " has no [Ramp]");
    if (ramp != nullptr) m_tables.CheckRamp(b);
    // [Ramp] is measured into R_load tied to the rail the edge leaves: ground for a rising edge, the
    // supply for a falling one (an open drain's load always goes to the supply, an open source's to
    // ground); ECL loads are tied elsewhere and are not compared.
    for (const IbisSection* s : b.vMembers) {
        const bool rising = s->sKeyword == "rising waveform";
        if (!rising && s->sKeyword != "falling waveform") continue;
        std::optional<double> rail = sink ? vcc : source ? 0.0 : rising ? 0.0 : vcc;
        if (type.find("ecl") != std::string::npos || vcc == 0) rail.reset();
        m_tables.CheckWaveform(*s, ramp, rail);
    }
    for (size_t i = 0; i < b.vMembers.size(); ++i) {
        const std::string& k = b.vMembers[i]->sKeyword;
        if (k == "algorithmic model") CheckAlgorithmicModel(b, i);
        else if (k == "external model") CheckExternalModel(b, i);
        else if (k == "add submodel") CheckAddSubmodel(*b.vMembers[i]);
    }
}

bool IbsRules::Closed(const Block& b, size_t at, const std::string& end) const {
    for (size_t i = at + 1; i < b.vMembers.size(); ++i)
        if (b.vMembers[i]->sKeyword == end) return true;
    return false;
}

void IbsRules::CheckExternalModel(const Block& b, size_t at) {
    const IbisSection& s = *b.vMembers[at];
    if (!Closed(b, at, "end external model")) Error(s.nLine, "[External Model] has no [End External Model]");
    static const std::set<std::string> kLanguages = {"SPICE", "VHDL-AMS", "Verilog-AMS", "IBIS-ISS", "Touchstone"};
    bool language = false, typ = false;
    for (const IbisLine& l : s.vBody) {
        const std::vector<std::string>& t = l.vTokens;
        const std::string key = Lower(t[0]);
        if (key == "language") {
            language = true;
            if (t.size() != 2 || kLanguages.count(t[1]) == 0)
                Error(l.nLine, "[External Model] Language " + (t.size() > 1 ? t[1] : std::string()) +
                                   " is not SPICE, VHDL-AMS, Verilog-AMS, IBIS-ISS or Touchstone");
        } else if (key == "corner" && t.size() >= 3) {
            typ = typ || Lower(t[1]) == "typ";
            if (!FileExists(m_sFolder + "/" + t[2]))
                Error(l.nLine, "[External Model] file " + t[2] + " not found next to the IBIS file");
        }
    }
    if (!language) Error(s.nLine, "[External Model] has no Language");
    if (!typ) Error(s.nLine, "[External Model] has no Corner Typ");
}

void IbsRules::CheckAddSubmodel(const IbisSection& s) {
    for (const IbisLine& l : s.vBody) {
        const std::vector<std::string>& t = l.vTokens;
        if (m_mSubmodels.count(Lower(t[0])) == 0)
            Error(l.nLine, "[Add Submodel] names submodel " + t[0] + ", which is not defined");
        const std::string mode = t.size() > 1 ? t[1] : "";
        if (t.size() != 2 || (mode != "Driving" && mode != "Non-Driving" && mode != "All"))
            Error(l.nLine, "[Add Submodel] mode " + mode + " is not Driving, Non-Driving or All");
    }
}

void IbsRules::CheckSubmodel(const Block& b) {
    const IbisSection& s = *b.pOpener;
    CheckName("[Submodel]", s.sArgs, 40, s.nLine);
    for (const IbisLine& l : s.vBody) {
        const std::vector<std::string> t = IbisLexer::SplitAssignment(l.sText);
        if (t.empty() || Lower(t[0]) != "submodel_type") continue;
        const std::string type = t.size() > 1 ? t[1] : "";
        if (t.size() != 2 || (type != "Dynamic_clamp" && type != "Bus_hold" && type != "Fall_back"))
            Error(l.nLine, "Submodel_type " + type + " is not Dynamic_clamp, Bus_hold or Fall_back");
        return;
    }
    Error(s.nLine, "[Submodel] " + s.sArgs + " has no Submodel_type");
}

void IbsRules::CheckAlgorithmicModel(const Block& b, size_t at) {
    const IbisSection& s = *b.vMembers[at];
    if (!Closed(b, at, "end algorithmic model")) Error(s.nLine, "[Algorithmic Model] has no [End Algorithmic Model]");
    int executables = 0;
    for (const IbisLine& l : s.vBody) {
        const std::optional<ibis::IbisExecutable> e = ibis::IbsModel::ReadExecutable(l);
        if (!e) continue;
        ++executables;
        const std::string& k = e->sKeyword;
        if (!e->bComplete) {
            Error(l.nLine, k + " needs platform_compiler_bits, the executable file and the .ami file");
            continue;
        }
        if (e->nBits == 0)
            Error(l.nLine, k + " platform " + e->sPlatform + " is not of the form platform_compiler_bits (bits 32 or 64)");
        const std::string library = m_sFolder + "/" + e->sLibrary, ami = m_sFolder + "/" + e->sAmi;
        const bool hasLibrary = FileExists(library), hasAmi = FileExists(ami);
        if (!hasLibrary) Error(l.nLine, k + " file " + e->sLibrary + " not found next to the IBIS file");
        const bool amiName = e->sAmi.size() > 4 && Lower(e->sAmi.substr(e->sAmi.size() - 4)) == ".ami";
        if (!amiName) Error(l.nLine, k + " parameter file " + e->sAmi + " does not have the .ami extension");
        else if (!hasAmi) Error(l.nLine, k + " parameter file " + e->sAmi + " not found next to the IBIS file");
        if (e->nBits != 0 && hasLibrary && hasAmi && amiName)
            m_vExecutables.push_back(ExecutableLine{l.nLine, b.pOpener->sArgs, e->sPlatform, e->nBits, library, ami});
    }
    if (executables == 0) Error(s.nLine, "[Algorithmic Model] has no Executable line");
}

}  // namespace ibischeck
