// IbsFile: component, model, Executable line and termination of an .ibs.
#include "tools/ibis/IbsFile.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>

#include "tools/base/HostError.h"
#include "tools/base/InputFile.h"
#include "tools/base/Text.h"
#include "tools/ibis/IbisLexer.h"
#include "tools/ibis/IbsModel.h"

namespace amihost {

namespace {

struct Model {
    std::vector<std::vector<std::string>> vExecutables;   // platform, library, .ami
    double dRgnd = 0.0, dRpower = 0.0;                    // typ, ohms; 0 when absent
    std::vector<std::pair<double, double>> vGndClamp;     // V, I typ
};

std::string Names(const std::vector<std::string>& names) {
    std::string s;
    for (const std::string& n : names) s += (s.empty() ? "" : ", ") + n;
    return s.empty() ? "none" : s;
}

}  // namespace

IbsReceiver IbsFile::Find(const std::string& path, const std::string& component, const std::string& model) {
    std::string text, problem;
    if (!ReadInputFile(path, text, problem)) throw HostError(ExitCode::kBadFile, "IBIS file " + path + " " + problem);
    // "./" keeps a library next to an .ibs in the working folder from being
    // looked up on the system's library path.
    const std::string folder = std::filesystem::path(path).parent_path().string();
    return Parse(text, path, folder.empty() ? "." : folder, component, model);
}

IbsReceiver IbsFile::Parse(const std::string& text, const std::string& origin, const std::string& folder,
                           const std::string& component, const std::string& modelName) {
    auto bad = [&](const std::string& why) { return HostError(ExitCode::kBadFile, origin + ": " + why); };
    auto at = [](int line) { return "line " + std::to_string(line) + ": "; };
    ibis::Report report;
    const std::vector<ibis::IbisSection> sections = ibis::IbisLexer::Read(text, origin, report);
    for (const ibis::Finding& f : report.Findings())
        if (f.eSeverity == ibis::Severity::kError) throw bad(at(f.nLine) + f.sMessage);
    const ibis::IbsModel file = ibis::IbsModel::Read(sections);
    if (!file.vProblems.empty()) throw bad(at(file.vProblems[0].first) + file.vProblems[0].second);
    std::vector<std::string> components, modelOrder;
    std::map<std::string, std::vector<std::string>> pinModels;   // component -> models of its pins
    std::map<std::string, Model> models;
    for (const ibis::IbisComponentInfo& c : file.vComponents) {
        components.push_back(c.sName);
        auto& pins = pinModels[c.sName];
        pins.insert(pins.end(), c.vPinModels.begin(), c.vPinModels.end());
    }
    for (const ibis::IbisModelInfo& info : file.vModels) {
        modelOrder.push_back(info.sName);
        Model& model = models[info.sName];
        for (const ibis::IbisExecutable& e : info.vExecutables) {
            if (Lower(e.sKeyword) == "executable_tx") continue;  // a transmitter's, not ours
            if (e.sAmi.empty()) throw bad(at(e.nLine) + "Executable needs a platform, a library and an .ami file");
            model.vExecutables.push_back({e.sPlatform, e.sLibrary, e.sAmi});
        }
        model.dRgnd = info.dRgnd.value_or(0.0);
        model.dRpower = info.dRpower.value_or(0.0);
        model.vGndClamp = info.vGndClamp;
    }

    IbsReceiver r;
    if (!component.empty()) {
        bool found = false;
        for (const std::string& c : components) found = found || c == component;
        if (!found) throw bad("no [Component] " + component + " (the file has: " + Names(components) + ")");
        r.sComponent = component;
    } else if (components.size() == 1) {
        r.sComponent = components[0];
    } else {
        throw bad("choose a component with --component (the file has: " + Names(components) + ")");
    }
    if (!modelName.empty()) {
        if (models.count(modelName) == 0) throw bad("no [Model] " + modelName + " (the file has: " + Names(modelOrder) + ")");
        if (models[modelName].vExecutables.empty()) throw bad("[Model] " + modelName + " has no [Algorithmic Model]");
        r.sModel = modelName;
    } else {
        std::vector<std::string> candidates;
        for (const std::string& m : pinModels[r.sComponent])
            if (models.count(m) && !models[m].vExecutables.empty() &&
                std::find(candidates.begin(), candidates.end(), m) == candidates.end())
                candidates.push_back(m);
        if (candidates.size() != 1)
            throw bad(candidates.empty() ? "no pin of [Component] " + r.sComponent + " uses a model with an [Algorithmic Model]"
                                         : "choose a model with --model (" + r.sComponent + " uses: " + Names(candidates) + ")");
        r.sModel = candidates[0];
    }
    const Model& m = models[r.sModel];
    std::vector<std::string> platforms;
    for (const auto& e : m.vExecutables) {
        platforms.push_back(e[0]);
        // Platform names read <OS>_<compiler>_<bits>.
        const std::string p = Lower(e[0]);
        if (r.sLibrary.empty() && p.rfind("linux", 0) == 0 && p.size() >= 3 && p.substr(p.size() - 3) == "_64") {
            r.sPlatform = e[0];
            r.sLibrary = (std::filesystem::path(folder) / e[1]).string();
            r.sAmiFile = (std::filesystem::path(folder) / e[2]).string();
        }
    }
    if (r.sLibrary.empty())
        throw bad("[Model] " + r.sModel + " has no Executable for Linux x86-64 (it has: " + Names(platforms) + ")");

    if (m.dRgnd > 0.0 || m.dRpower > 0.0) {
        r.dTerminationOhms = m.dRgnd > 0.0 && m.dRpower > 0.0 ? 1.0 / (1.0 / m.dRgnd + 1.0 / m.dRpower)
                                                              : (m.dRgnd > 0.0 ? m.dRgnd : m.dRpower);
        r.sTermination = m.dRgnd > 0.0 && m.dRpower > 0.0 ? "[Rgnd] || [Rpower]" : (m.dRgnd > 0.0 ? "[Rgnd]" : "[Rpower]");
    } else {
        const auto& c = m.vGndClamp;
        for (size_t i = 0; i + 1 < c.size(); ++i)
            if (c[i].first >= 0.0 && c[i + 1].first > c[i].first && c[i + 1].second != c[i].second) {
                r.dTerminationOhms = (c[i + 1].first - c[i].first) / (c[i + 1].second - c[i].second);
                r.sTermination = "[GND Clamp] slope";
                break;
            }
        if (r.dTerminationOhms < 0.0) r.dTerminationOhms = 0.0, r.sTermination.clear();
    }
    return r;
}

}  // namespace amihost
