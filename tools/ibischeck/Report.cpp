// Report: findings and their three printed forms.
#include "tools/ibischeck/Report.h"

#include <cstdarg>

#include "amiparams/IbisParser/errlog.h"
#include "tools/JsonWriter.h"

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
    m_vFindings.push_back(Finding{file, line, s, message});
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
    amihost::JsonWriter w;
    w.BeginObject().Key("files").BeginArray();
    for (const std::string& f : files) w.Value(f);
    w.EndArray();
    w.Key("errors").Value(static_cast<long long>(Count(Severity::kError)));
    w.Key("warnings").Value(static_cast<long long>(Count(Severity::kWarning)));
    w.Key("notes").Value(static_cast<long long>(Count(Severity::kNote)));
    w.Key("findings").BeginArray();
    for (const Finding& f : m_vFindings) {
        w.BeginObject();
        w.Key("file").Value(f.sFile);
        w.Key("line").Value(static_cast<long long>(f.nLine));
        w.Key("severity").Value(SeverityName(f.eSeverity));
        w.Key("message").Value(f.sMessage);
        w.EndObject();
    }
    w.EndArray().EndObject();
    return w.Text() + "\n";
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
