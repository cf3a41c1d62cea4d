// Report: the findings of one checker run, each tied to a file and a line,
// printed as "file:line: SEVERITY: message" for people, as JSON for
// machines, or through the diagnostics log's printer in its numbered style.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace ibischeck {

enum class Severity { kNote, kWarning, kError };

const char* SeverityName(Severity s);  // "NOTE", "WARNING", "ERROR"

struct Finding {
    std::string sFile;
    int nLine;  // 1-based; 0 when the finding concerns the whole file
    Severity eSeverity;
    std::string sMessage;
};

class Report {
public:
    void Add(Severity s, const std::string& file, int line, const std::string& message);
    void Error(const std::string& file, int line, const std::string& m) { Add(Severity::kError, file, line, m); }
    void Warning(const std::string& file, int line, const std::string& m) { Add(Severity::kWarning, file, line, m); }
    void Note(const std::string& file, int line, const std::string& m) { Add(Severity::kNote, file, line, m); }

    const std::vector<Finding>& Findings() const { return m_vFindings; }
    int Count(Severity s) const;

    // One "file:line: SEVERITY: message" per finding, then a summary line
    // "N ERROR, N WARNING, N NOTE".
    std::string Text() const;
    // {"files": [...], "errors": N, "warnings": N, "notes": N, "findings": [...]}
    std::string Json(const std::vector<std::string>& files) const;
    // Through the diagnostics log (its stream, counters and line variants),
    // one "file:" header per file.
    void PrintToLog() const;

private:
    std::vector<Finding> m_vFindings;
};

}  // namespace ibischeck
