// HtmlPage: one self-contained HTML file a run leaves behind to be opened in
// any browser, with no network and no other files: headings, a list of
// settings, tables whose columns sort on a click, and PNG images carried
// inline as data: URLs.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace amihost {

class HtmlPage {
public:
    explicit HtmlPage(const std::string& title);

    void Heading(const std::string& text);
    void Paragraph(const std::string& text);
    // Text in a fixed-width font, its lines kept.
    void Preformatted(const std::string& text);
    // name: value lines.
    void Settings(const std::vector<std::pair<std::string, std::string>>& items);
    // A table whose rows the reader sorts by clicking a column's heading:
    // numerically when both cells read as numbers, else as text.
    void Table(const std::string& id, const std::vector<std::string>& header,
               const std::vector<std::vector<std::string>>& rows);
    // The PNG file's bytes, inline; throws HostError(kOutputFailed) when it
    // cannot be read.
    void Image(const std::string& caption, const std::string& pngPath);

    std::string Text() const;

    // <, >, & and quotes as entities.
    static std::string Escape(const std::string& text);
    static std::string Base64(const std::string& bytes);

private:
    std::string m_sTitle, m_sBody;
};

}  // namespace amihost
