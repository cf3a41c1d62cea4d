// IbsModel: components, models and Executable lines from the sections.
#include "tools/ibis/IbsModel.h"

#include <cmath>

#include "tools/base/Text.h"
#include "tools/ibis/IbisNumber.h"

namespace ibis {

std::optional<IbisExecutable> IbsModel::ReadExecutable(const IbisLine& line) {
    const std::vector<std::string>& t = line.vTokens;
    const std::string key = t.empty() ? "" : amihost::Lower(t[0]);
    if (key != "executable" && key != "executable_rx" && key != "executable_tx") return std::nullopt;
    IbisExecutable e;
    e.nLine = line.nLine;
    e.sKeyword = t[0];
    e.bComplete = t.size() == 4;
    if (t.size() > 1) e.sPlatform = t[1];
    if (t.size() > 2) e.sLibrary = t[2];
    if (t.size() > 3) e.sAmi = t[3];
    // platform_compiler_bits: at least three "_"-separated parts, the last 32 or 64.
    const size_t first = e.sPlatform.find('_'), last = e.sPlatform.rfind('_');
    const std::string bits = last == std::string::npos ? "" : e.sPlatform.substr(last + 1);
    if (first != std::string::npos && first > 0 && last > first + 1 && (bits == "32" || bits == "64"))
        e.nBits = bits == "32" ? 32 : 64;
    return e;
}

IbsModel IbsModel::Read(const std::vector<IbisSection>& sections) {
    IbsModel m;
    // Indices, not pointers: the vectors grow while they are read.
    const size_t none = size_t(-1);
    size_t ci = none, mi = none;
    for (const IbisSection& s : sections) {
        const std::string& keyword = s.sKeyword;
        const std::string arg = s.vArgs.empty() ? "" : s.vArgs[0];
        if (keyword == "component") {
            m.vComponents.push_back({arg, s.nLine, {}});
            ci = m.vComponents.size() - 1;
            mi = none;
        } else if (keyword == "model") {
            m.vModels.push_back({arg, s.nLine, {}, std::nullopt, std::nullopt, {}});
            mi = m.vModels.size() - 1;
        }
        IbisComponentInfo* component = ci == none ? nullptr : &m.vComponents[ci];
        IbisModelInfo* model = mi == none ? nullptr : &m.vModels[mi];
        if ((keyword == "rgnd" || keyword == "rpower") && model != nullptr) {
            const std::optional<double> r = IbisNumber::Parse(arg);
            if (!r || !(*r > 0) || !std::isfinite(*r))
                m.vProblems.push_back({s.nLine, "[" + keyword + "] needs a resistance"});
            else
                (keyword == "rgnd" ? model->dRgnd : model->dRpower) = *r;
        }
        for (const IbisLine& l : s.vBody) {
            const std::vector<std::string>& w = l.vTokens;
            if (l.sText[0] == '[') m.vProblems.push_back({l.nLine, "keyword without ']'"});
            if (keyword == "pin" && component != nullptr && w.size() >= 3) {
                component->vPinModels.push_back(w[2]);
            } else if (keyword == "algorithmic model" && model != nullptr) {
                if (std::optional<IbisExecutable> e = ReadExecutable(l)) model->vExecutables.push_back(*e);
            } else if (keyword == "gnd clamp" && model != nullptr && w.size() >= 2) {
                const auto v = IbisNumber::Parse(w[0]), i = IbisNumber::Parse(w[1]);
                if (v && i) model->vGndClamp.push_back({*v, *i});
            }
        }
    }
    return m;
}

const IbisModelInfo* IbsModel::FindModel(const std::string& name) const {
    for (const IbisModelInfo& info : vModels)
        if (info.sName == name) return &info;
    return nullptr;
}

}  // namespace ibis
