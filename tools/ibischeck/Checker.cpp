// Checker: file type by extension, rules, then the named files.
#include "tools/ibischeck/Checker.h"

#include <fstream>
#include <map>
#include <sstream>

#include "tools/ibis/AmiFile.h"
#include "tools/ibis/ParameterString.h"
#include "tools/ibischeck/AmiRules.h"
#include "tools/ibischeck/ExecutableCheck.h"
#include "tools/ibischeck/PeImage.h"
#include "tools/base/InputFile.h"
#include "tools/ibis/IbisLexer.h"
#include "tools/ibischeck/IbsRules.h"

namespace ibischeck {

namespace {

bool ReadFile(const std::string& path, std::string& text, std::string& problem) {
    return amihost::ReadInputFile(path, text, problem);
}

std::string Extension(const std::string& path) {
    const size_t dot = path.rfind('.'), slash = path.rfind('/');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
    std::string e = path.substr(dot);
    for (char& c : e) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return e;
}

std::string System(const std::string& platform) {
    std::string os = platform.substr(0, platform.find('_'));
    for (char& c : os) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return os;
}

// A Windows library is read, never loaded: its format, exports and imports.
void CheckWindowsLibrary(const ExecutableLine& e, bool getWaveExists, const std::string& shown, Report& report) {
    const size_t slash = e.sLibrary.rfind('/');
    const std::string name = "Executable " + e.sLibrary.substr(slash == std::string::npos ? 0 : slash + 1);
    PeImage image;
    std::string problem;
    if (!PeImage::Read(e.sLibrary, image, problem)) {
        report.Error(shown, e.nLine, name + " " + problem);
        return;
    }
    const std::vector<std::string> problems = image.Problems(e.nBits, getWaveExists);
    for (const std::string& p : problems) report.Error(shown, e.nLine, name + " " + p);
    if (!problems.empty()) return;
    std::string imports;
    for (const std::string& dll : image.vImports) imports += " " + dll;
    report.Note(shown, e.nLine, name + " read without loading it: " + (e.nBits == 64 ? "PE32+ x86-64" : "PE32 x86") +
                                    " DLL exporting the AMI entry points, importing only system DLLs:" + imports);
}

}  // namespace

void Checker::CheckFile(const std::string& path) {
    std::string text, problem;
    if (!ReadFile(path, text, problem)) {
        m_rReport.Error(path, 0, "the file " + problem);
        return;
    }
    const std::string ext = Extension(path);
    if (ext == ".ami") {
        CheckAmi(path, text);
        return;
    }
    if (ext != ".ibs" && ext != ".pkg" && ext != ".ebd") {
        m_rReport.Error(path, 0, "not an .ibs, .pkg, .ebd or .ami file");
        return;
    }
    const std::vector<IbisSection> sections = IbisLexer::Read(text, path, m_rReport);
    IbsRules rules(path, path, m_rReport);
    rules.Check(sections);

    std::map<std::string, bool> amiClean;  // per .ami file: checked without ERROR
    for (const ExecutableLine& e : rules.Executables()) {
        std::string amiText, amiProblem;
        if (!ReadFile(e.sAmi, amiText, amiProblem)) {
            m_rReport.Error(path, e.nLine, e.sAmi + " " + amiProblem);
            continue;
        }
        if (amiClean.count(e.sAmi) == 0) {
            const int errorsBefore = m_rReport.Count(Severity::kError);
            CheckAmi(e.sAmi, amiText);
            amiClean[e.sAmi] = m_rReport.Count(Severity::kError) == errorsBefore;
        }
        if (System(e.sPlatform) == "windows") {
            bool getWave = false;
            try {
                const amihost::AmiFile ami = amihost::AmiFile::Parse(amiText, e.sAmi);
                const amihost::AmiParameter* g = ami.FindReserved("GetWave_Exists");
                getWave = g != nullptr && !g->vFormat.empty() && g->vFormat[0] == "True";
            } catch (const std::exception&) {
                // the .ami file's own findings say what is wrong with it
            }
            CheckWindowsLibrary(e, getWave, path, m_rReport);
            continue;
        }
        if (!m_options.bRunExecutables || System(e.sPlatform) != "linux") continue;
        if (!amiClean[e.sAmi]) {
            m_rReport.Note(path, e.nLine, "the library is not exercised: its .ami file has errors");
            continue;
        }
        std::string parameters;
        bool getWave = true;
        try {
            const amihost::AmiFile ami = amihost::AmiFile::Parse(amiText, e.sAmi);
            parameters = amihost::ParameterString(ami).Text();
            const amihost::AmiParameter* g = ami.FindReserved("GetWave_Exists");
            getWave = g != nullptr && !g->vFormat.empty() && g->vFormat[0] == "True";
        } catch (const std::exception& x) {
            m_rReport.Note(path, e.nLine, std::string("the library is not exercised: ") + x.what());
            continue;
        }
        const std::string isolation = ExecutableCheck::Run(e, parameters, getWave, m_options.limits, path, m_rReport);
        if (!isolation.empty() && !m_bSaidHowLibrariesRun) {
            m_bSaidHowLibrariesRun = true;
            m_rReport.Note(path, e.nLine, "checking ran the library's own code, in a child process isolated by " +
                                              isolation + ", with " + amihost::Sandbox(m_options.limits).LimitsText() +
                                              "; --no-exec checks without running it");
        }
    }
}

void Checker::CheckAmi(const std::string& shown, const std::string& text) {
    AmiRules(shown, m_rReport).Check(text);
}

}  // namespace ibischeck
