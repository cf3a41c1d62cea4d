// Report: the findings of one checker run, each tied to a file and a line,
// printed as "file:line: SEVERITY: message" for people, as JSON for
// machines, or through the diagnostics log's printer in its numbered style.
// Findings of one kind (the same message but for its numbers and quoted
// text) are kept up to kPerKind per file, the rest counted in a NOTE, so that
// a file of a million bad lines gives a report of bounded size; streamed, the
// report is written as findings come instead of held until the end.
#pragma once

#include <cstdio>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

namespace ibis {

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
    static constexpr int kPerKind = 100;

    enum class Format { kText, kJson };
    // From now on each finding is written to `out` as it is added; Finish
    // writes the left-out counts and the summary.
    void Stream(FILE* out, Format format);
    void Finish(const std::vector<std::string>& files);

    void Add(Severity s, const std::string& file, int line, const std::string& message);
    void Error(const std::string& file, int line, const std::string& m) { Add(Severity::kError, file, line, m); }
    void Warning(const std::string& file, int line, const std::string& m) { Add(Severity::kWarning, file, line, m); }
    void Note(const std::string& file, int line, const std::string& m) { Add(Severity::kNote, file, line, m); }

    const std::vector<Finding>& Findings() const { return m_vFindings; }
    int Count(Severity s) const;  // all findings, those left out included

    // One "file:line: SEVERITY: message" per finding, then a summary line
    // "N ERROR, N WARNING, N NOTE".
    std::string Text() const;
    // {"files": [...], "errors": N, "warnings": N, "notes": N, "findings": [...]}
    std::string Json(const std::vector<std::string>& files) const;
    // Through the diagnostics log (its stream, counters and line variants),
    // one "file:" header per file.
    void PrintToLog() const;

private:
    struct Kind {
        int nSeen = 0;
        Finding first;
    };
    void Emit(const Finding& f);
    // The NOTEs that count what the caps left out, in order of first sight.
    std::vector<Finding> LeftOut() const;

    std::vector<Finding> m_vFindings;
    std::unordered_map<std::string, Kind> m_mKinds;
    std::vector<std::string> m_vKindOrder;
    int m_nCount[3] = {0, 0, 0};
    FILE* m_pStream = nullptr;
    Format m_eFormat = Format::kText;
    bool m_bFirst = true;
};

}  // namespace ibis
