// Report: findings and their three printed forms.
#include "tools/ibischeck/Report.h"

#include <cstdarg>
#include <nlohmann/json.hpp>

#include "tools/InputFile.h"

#include "amiparams/IbisParser/errlog.h"

namespace ibischeck {

namespace {

int LogKind(Severity s) {
    switch (s) {
        case Severity::kError: return ERRLOG_KIND_LINE_ERROR;
        case Severity::kWarning: return ERRLOG_KIND_LINE_WARN;
        default: return ERRLOG_KIND_LINE_NOTE;
    }
}

// The printer takes a va_list; this builds one for a single "%s".
int LogPrint(int kind, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const int n = s_ErrLog(kind, format, args);
    va_end(args);
    return n;
}

}  // namespace

const char* SeverityName(Severity s) {
    switch (s) {
        case Severity::kError: return "ERROR";
        case Severity::kWarning: return "WARNING";
        default: return "NOTE";
    }
}

void Report::Add(Severity s, const std::string& file, int line, const std::string& message) {
    m_vFindings.push_back(Finding{amihost::Printable(file), line, s, amihost::Printable(message)});
}

int Report::Count(Severity s) const {
    int n = 0;
    for (const Finding& f : m_vFindings) n += f.eSeverity == s;
    return n;
}

std::string Report::Text() const {
    std::string out;
    for (const Finding& f : m_vFindings)
        out += f.sFile + ":" + std::to_string(f.nLine) + ": " + SeverityName(f.eSeverity) + ": " + f.sMessage + "\n";
    out += std::to_string(Count(Severity::kError)) + " ERROR, " + std::to_string(Count(Severity::kWarning)) +
           " WARNING, " + std::to_string(Count(Severity::kNote)) + " NOTE\n";
    return out;
}

std::string Report::Json(const std::vector<std::string>& files) const {
    nlohmann::ordered_json findings = nlohmann::ordered_json::array();
    for (const Finding& f : m_vFindings)
        findings.push_back(
            {{"file", f.sFile}, {"line", f.nLine}, {"severity", SeverityName(f.eSeverity)}, {"message", f.sMessage}});
    const nlohmann::ordered_json doc = {{"files", files},
                                        {"errors", Count(Severity::kError)},
                                        {"warnings", Count(Severity::kWarning)},
                                        {"notes", Count(Severity::kNote)},
                                        {"findings", findings}};
    // Messages quote the checked files, which need not be UTF-8.
    return doc.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

void Report::PrintToLog() const {
    const std::string* file = nullptr;
    for (const Finding& f : m_vFindings) {
        if (file == nullptr || *file != f.sFile) {
            file = &f.sFile;
            fprintf(gpLogFile != nullptr ? gpLogFile : stdout, "%s:\n", f.sFile.c_str());
        }
        gulLineNum = static_cast<unsigned long>(f.nLine);
        LogPrint(LogKind(f.eSeverity), "%s", f.sMessage.c_str());
    }
    gulLineNum = 0;
}

}  // namespace ibischeck
