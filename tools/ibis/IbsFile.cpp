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

// A receiver's Executable lines: a transmitter's are not ours.
std::vector<const ibis::IbisExecutable*> RxExecutables(const ibis::IbisModelInfo& m) {
    std::vector<const ibis::IbisExecutable*> out;
    for (const ibis::IbisExecutable& e : m.vExecutables)
        if (Lower(e.sKeyword) != "executable_tx") out.push_back(&e);
    return out;
}

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
    for (const ibis::IbisComponentInfo& c : file.vComponents) components.push_back(c.sName);
    for (const ibis::IbisModelInfo& info : file.vModels) {
        modelOrder.push_back(info.sName);
        for (const ibis::IbisExecutable* e : RxExecutables(info))
            if (e->sAmi.empty()) throw bad(at(e->nLine) + "Executable needs a platform, a library and an .ami file");
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
        const ibis::IbisModelInfo* named = file.FindModel(modelName);
        if (named == nullptr) throw bad("no [Model] " + modelName + " (the file has: " + Names(modelOrder) + ")");
        if (RxExecutables(*named).empty()) throw bad("[Model] " + modelName + " has no [Algorithmic Model]");
        r.sModel = modelName;
    } else {
        std::vector<std::string> candidates;
        for (const ibis::IbisComponentInfo& c : file.vComponents)
            if (c.sName == r.sComponent)
                for (const std::string& pin : c.vPinModels) {
                    const ibis::IbisModelInfo* used = file.FindModel(pin);
                    if (used != nullptr && !RxExecutables(*used).empty() &&
                        std::find(candidates.begin(), candidates.end(), pin) == candidates.end())
                        candidates.push_back(pin);
                }
        if (candidates.size() != 1)
            throw bad(candidates.empty() ? "no pin of [Component] " + r.sComponent + " uses a model with an [Algorithmic Model]"
                                         : "choose a model with --model (" + r.sComponent + " uses: " + Names(candidates) + ")");
        r.sModel = candidates[0];
    }
    const ibis::IbisModelInfo& m = *file.FindModel(r.sModel);
    std::vector<std::string> platforms;
    for (const ibis::IbisExecutable* e : RxExecutables(m)) {
        platforms.push_back(e->sPlatform);
        // Platform names read <OS>_<compiler>_<bits>.
        const std::string p = Lower(e->sPlatform);
        if (r.sLibrary.empty() && p.rfind("linux", 0) == 0 && p.size() >= 3 && p.substr(p.size() - 3) == "_64") {
            r.sPlatform = e->sPlatform;
            r.sLibrary = (std::filesystem::path(folder) / e->sLibrary).string();
            r.sAmiFile = (std::filesystem::path(folder) / e->sAmi).string();
        }
    }
    if (r.sLibrary.empty())
        throw bad("[Model] " + r.sModel + " has no Executable for Linux x86-64 (it has: " + Names(platforms) + ")");

    const double rgnd = m.dRgnd.value_or(0.0), rpower = m.dRpower.value_or(0.0);
    if (rgnd > 0.0 || rpower > 0.0) {
        r.dTerminationOhms = rgnd > 0.0 && rpower > 0.0 ? 1.0 / (1.0 / rgnd + 1.0 / rpower) : (rgnd > 0.0 ? rgnd : rpower);
        r.sTermination = rgnd > 0.0 && rpower > 0.0 ? "[Rgnd] || [Rpower]" : (rgnd > 0.0 ? "[Rgnd]" : "[Rpower]");
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
