// Report: findings and their three printed forms.
#include "tools/ibis/Report.h"

#include <cstdarg>
#include <nlohmann/json.hpp>

#include "tools/base/InputFile.h"

#include "amiparams/IbisParser/errlog.h"

namespace ibis {

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

// A finding's kind: its file, severity and message with the numbers and
// the quoted or bracketed names taken out.
std::string KindOf(const Finding& f) {
    std::string k = f.sFile + '\0' + SeverityName(f.eSeverity) + '\0';
    char close = 0;
    for (char c : f.sMessage) {
        if (close != 0) {
            if (c == close) close = 0;
            continue;
        }
        if (c == '"') close = '"';
        else if (c == '[') close = ']';
        if (c >= '0' && c <= '9') {
            if (k.empty() || k.back() != '#') k += '#';
        } else {
            k += c;
        }
    }
    return k;
}

nlohmann::ordered_json JsonOf(const Finding& f) {
    return {{"file", f.sFile}, {"line", f.nLine}, {"severity", SeverityName(f.eSeverity)}, {"message", f.sMessage}};
}

// Messages quote the checked files, which need not be UTF-8.
std::string Dump(const nlohmann::ordered_json& j, int indent) {
    return j.dump(indent, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
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
    const Finding f{amihost::Printable(file), line, s, amihost::Printable(message)};
    ++m_nCount[static_cast<int>(s)];
    const std::string key = KindOf(f);
    Kind& kind = m_mKinds[key];
    if (kind.nSeen++ == 0) {
        kind.first = f;
        m_vKindOrder.push_back(key);
    }
    if (kind.nSeen <= kPerKind) Emit(f);
}

void Report::Emit(const Finding& f) {
    if (m_pStream == nullptr) {
        m_vFindings.push_back(f);
    } else if (m_eFormat == Format::kText) {
        fprintf(m_pStream, "%s:%d: %s: %s\n", f.sFile.c_str(), f.nLine, SeverityName(f.eSeverity), f.sMessage.c_str());
    } else {
        std::string item;
        const nlohmann::ordered_json j = JsonOf(f);
        for (const auto& [key, value] : j.items())
            item += (item.empty() ? "{\"" : ", \"") + key + "\": " + Dump(value, -1);
        fprintf(m_pStream, "%s    %s}", m_bFirst ? "" : ",\n", item.c_str());
        m_bFirst = false;
    }
}

std::vector<Finding> Report::LeftOut() const {
    std::vector<Finding> notes;
    for (const std::string& key : m_vKindOrder) {
        const Kind& k = m_mKinds.at(key);
        if (k.nSeen > kPerKind)
            notes.push_back(Finding{k.first.sFile, 0, Severity::kNote,
                                    std::to_string(k.nSeen - kPerKind) + " more " + SeverityName(k.first.eSeverity) +
                                        " findings like this one are left out: " + k.first.sMessage});
    }
    return notes;
}

void Report::Stream(FILE* out, Format format) {
    m_pStream = out;
    m_eFormat = format;
    if (format == Format::kJson) fputs("{\n  \"findings\": [\n", out);
}

void Report::Finish(const std::vector<std::string>& files) {
    if (m_pStream == nullptr) return;
    for (const Finding& f : LeftOut()) Emit(f);
    if (m_eFormat == Format::kText) {
        fprintf(m_pStream, "%d ERROR, %d WARNING, %d NOTE\n", Count(Severity::kError), Count(Severity::kWarning),
                Count(Severity::kNote));
    } else {
        fprintf(m_pStream, "%s  ],\n  \"files\": %s,\n  \"errors\": %d,\n  \"warnings\": %d,\n  \"notes\": %d\n}\n",
                m_bFirst ? "" : "\n", Dump(nlohmann::ordered_json(files), -1).c_str(), Count(Severity::kError),
                Count(Severity::kWarning), Count(Severity::kNote));
    }
    fflush(m_pStream);
}

int Report::Count(Severity s) const { return m_nCount[static_cast<int>(s)]; }

std::string Report::Text() const {
    std::string out;
    std::vector<Finding> all = m_vFindings;
    for (const Finding& f : LeftOut()) all.push_back(f);
    for (const Finding& f : all)
        out += f.sFile + ":" + std::to_string(f.nLine) + ": " + SeverityName(f.eSeverity) + ": " + f.sMessage + "\n";
    out += std::to_string(Count(Severity::kError)) + " ERROR, " + std::to_string(Count(Severity::kWarning)) +
           " WARNING, " + std::to_string(Count(Severity::kNote)) + " NOTE\n";
    return out;
}

std::string Report::Json(const std::vector<std::string>& files) const {
    nlohmann::ordered_json findings = nlohmann::ordered_json::array();
    for (const Finding& f : m_vFindings) findings.push_back(JsonOf(f));
    for (const Finding& f : LeftOut()) findings.push_back(JsonOf(f));
    const nlohmann::ordered_json doc = {{"files", files},
                                        {"errors", Count(Severity::kError)},
                                        {"warnings", Count(Severity::kWarning)},
                                        {"notes", Count(Severity::kNote)},
                                        {"findings", findings}};
    return Dump(doc, 2) + "\n";
}

void Report::PrintToLog() const {
    const std::string* file = nullptr;
    std::vector<Finding> all = m_vFindings;
    for (const Finding& f : LeftOut()) all.push_back(f);
    for (const Finding& f : all) {
        if (file == nullptr || *file != f.sFile) {
            file = &f.sFile;
            fprintf(gpLogFile != nullptr ? gpLogFile : stdout, "%s:\n", f.sFile.c_str());
        }
        gulLineNum = static_cast<unsigned long>(f.nLine);
        LogPrint(LogKind(f.eSeverity), "%s", f.sMessage.c_str());
    }
    gulLineNum = 0;
}

}  // namespace ibis
