// HtmlPage: the page's text, built as it is described.
#include "tools/base/HtmlPage.h"

#include "tools/base/HostError.h"
#include "tools/base/InputFile.h"

namespace amihost {

namespace {

// Sorting a table by one column; a second click reverses it.
const char* const kSortScript = R"(<script>
function sortTable(th) {
  const table = th.closest('table'), body = table.tBodies[0], col = th.cellIndex;
  const up = th.dataset.order !== 'up';
  th.dataset.order = up ? 'up' : 'down';
  const key = r => r.cells[col].textContent.trim();
  const rows = Array.from(body.rows);
  rows.sort((a, b) => {
    const x = key(a), y = key(b), nx = parseFloat(x), ny = parseFloat(y);
    const c = (!isNaN(nx) && !isNaN(ny)) ? nx - ny : x.localeCompare(y);
    return up ? c : -c;
  });
  rows.forEach(r => body.appendChild(r));
}
</script>
)";

const char* const kStyle = R"(<style>
body { font-family: sans-serif; margin: 2em; color: #222; }
table { border-collapse: collapse; margin: 1em 0; }
th, td { border: 1px solid #bbb; padding: 0.25em 0.75em; text-align: right; }
th { background: #e8eef4; cursor: pointer; }
td:first-child, th:first-child { text-align: left; }
dl { display: grid; grid-template-columns: max-content auto; gap: 0.2em 1em; }
dt { font-weight: bold; }
figure { display: inline-block; margin: 0.5em; }
</style>
)";

}  // namespace

HtmlPage::HtmlPage(const std::string& title) : m_sTitle(title) {}

std::string HtmlPage::Escape(const std::string& text) {
    std::string s;
    for (char c : text) {
        switch (c) {
            case '<': s += "&lt;"; break;
            case '>': s += "&gt;"; break;
            case '&': s += "&amp;"; break;
            case '"': s += "&quot;"; break;
            case '\'': s += "&#39;"; break;
            default: s += c;
        }
    }
    return s;
}

std::string HtmlPage::Base64(const std::string& bytes) {
    static const char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string s;
    s.reserve((bytes.size() + 2) / 3 * 4);
    for (size_t i = 0; i < bytes.size(); i += 3) {
        const size_t n = bytes.size() - i < 3 ? bytes.size() - i : 3;
        unsigned v = static_cast<unsigned char>(bytes[i]) << 16;
        if (n > 1) v |= static_cast<unsigned char>(bytes[i + 1]) << 8;
        if (n > 2) v |= static_cast<unsigned char>(bytes[i + 2]);
        s += kDigits[(v >> 18) & 63];
        s += kDigits[(v >> 12) & 63];
        s += n > 1 ? kDigits[(v >> 6) & 63] : '=';
        s += n > 2 ? kDigits[v & 63] : '=';
    }
    return s;
}

void HtmlPage::Heading(const std::string& text) { m_sBody += "<h2>" + Escape(text) + "</h2>\n"; }

void HtmlPage::Paragraph(const std::string& text) { m_sBody += "<p>" + Escape(text) + "</p>\n"; }

void HtmlPage::Preformatted(const std::string& text) { m_sBody += "<pre>" + Escape(text) + "</pre>\n"; }

void HtmlPage::Settings(const std::vector<std::pair<std::string, std::string>>& items) {
    m_sBody += "<dl>\n";
    for (const auto& [name, value] : items) m_sBody += "<dt>" + Escape(name) + "</dt><dd>" + Escape(value) + "</dd>\n";
    m_sBody += "</dl>\n";
}

void HtmlPage::Table(const std::string& id, const std::vector<std::string>& header,
                     const std::vector<std::vector<std::string>>& rows) {
    m_sBody += "<table id=\"" + Escape(id) + "\">\n<thead><tr>";
    for (const std::string& h : header) m_sBody += "<th onclick=\"sortTable(this)\">" + Escape(h) + "</th>";
    m_sBody += "</tr></thead>\n<tbody>\n";
    for (const std::vector<std::string>& row : rows) {
        m_sBody += "<tr>";
        for (const std::string& cell : row) m_sBody += "<td>" + Escape(cell) + "</td>";
        m_sBody += "</tr>\n";
    }
    m_sBody += "</tbody>\n</table>\n";
}

void HtmlPage::Image(const std::string& caption, const std::string& pngPath) {
    std::string bytes, problem;
    if (!ReadInputFile(pngPath, bytes, problem))
        throw HostError(ExitCode::kOutputFailed, "cannot put " + pngPath + " into the report: " + problem);
    m_sBody += "<figure><img alt=\"" + Escape(caption) + "\" src=\"data:image/png;base64," + Base64(bytes) +
               "\"><figcaption>" + Escape(caption) + "</figcaption></figure>\n";
}

std::string HtmlPage::Text() const {
    return "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<title>" + Escape(m_sTitle) +
           "</title>\n" + kStyle + kSortScript + "</head>\n<body>\n<h1>" + Escape(m_sTitle) + "</h1>\n" + m_sBody +
           "</body>\n</html>\n";
}

}  // namespace amihost
