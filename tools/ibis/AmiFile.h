// AmiFile: an IBIS-AMI parameter definition file (.ami) read with the
// project's own parameter-tree parser.
//
// The file is a tree: a root branch named after the model, holding the
// branches Reserved_Parameters and (optionally) Model_Specific and an
// optional Description. Each parameter is a branch of leaves such as
//   (EQ (Usage In) (Type Integer) (Range 0 0 15) (Default 0) (Description "..."))
// where the format may also be written the older way, (Format Range 0 0 15).
// Model_Specific parameters may sit in nested groups; their path is the
// dotted list of names below Model_Specific ("EQ", "Group.EQ").
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace amihost {

struct AmiParameter {
    std::string sPath;                  // dotted path below its section
    std::vector<std::string> vPath;     // the same, one name per level
    std::string sUsage;                 // In, Out, InOut or Info
    std::string sType;                  // Float, Integer, String, Boolean, UI, Tap
    std::string sFormat;                // Value, Range, List, Increment, Steps, Corner, ... ("" when none)
    std::vector<std::string> vFormat;   // the values after the format name, as written
    std::string sDefault;               // the value a simulator uses when nobody sets it ("" when none)
    std::string sDescription;           // quotes removed

    bool IsInput() const { return sUsage == "In" || sUsage == "InOut"; }
};

class AmiFile {
public:
    static constexpr size_t kMaxNesting = 64;
    // Longest run of whitespace the parameter parser accepts (one line).
    static constexpr size_t kMaxBlankRun = 120;
    // The longest run of whitespace in text, as the parser counts it.
    static size_t LongestBlankRun(const std::string& text);

    // Reads and parses the file. Throws HostError(kBadFile) naming the file
    // and the reason.
    static AmiFile Load(const std::string& path);
    // Parses text; origin names it in messages. Groups nested deeper than
    // kMaxNesting levels are refused.
    static AmiFile Parse(const std::string& text, const std::string& origin);

    // The text handed to the parser: "|" comments removed and every run of
    // whitespace outside double quotes reduced to one blank.
    static std::string Clean(const std::string& text);

    const std::string& RootName() const { return m_sRoot; }
    const std::string& Description() const { return m_sDescription; }
    const std::vector<AmiParameter>& Reserved() const { return m_vReserved; }
    const std::vector<AmiParameter>& ModelSpecific() const { return m_vModelSpecific; }

    // A model-specific parameter by dotted path, or by its last name when
    // that is unambiguous; null when there is none.
    const AmiParameter* Find(const std::string& name) const;
    // A reserved parameter by name; null when absent.
    const AmiParameter* FindReserved(const std::string& name) const;

private:
    std::string m_sRoot;
    std::string m_sDescription;
    std::vector<AmiParameter> m_vReserved;
    std::vector<AmiParameter> m_vModelSpecific;
};

}  // namespace amihost
