// ParameterString: the AMI_parameters_in text a simulator builds from an
// .ami file: the root name, then every model-specific parameter of Usage In
// or InOut with its value, nested as in the file:
//   (KV2_RX (SampleRate 1e12) (EQ 0) (SamplesPerBit 100) (Corner "Typ"))
// Values start at the file's defaults; Set overrides one after checking it
// against the parameter's Usage, Type and Range or List.
#pragma once

#include <string>
#include <vector>

#include "tools/ibis/AmiFile.h"

namespace amihost {

class ParameterString {
public:
    explicit ParameterString(const AmiFile& file);

    // name: dotted path or unambiguous last name. Throws
    // HostError(kBadParameter) when the parameter is unknown, not an input,
    // or the value does not fit its type or format.
    void Set(const std::string& name, const std::string& value);
    // "NAME=VALUE", as given on the command line.
    void SetAssignment(const std::string& assignment);

    // The value currently set for a parameter (as it appears in the text);
    // throws like Set when the name is unknown.
    std::string Get(const std::string& name) const;

    std::string Text() const;

    // The values a sweep of the parameter visits: every integer of an
    // Integer Range, or the entries of a List. Throws HostError(kBadParameter)
    // when the parameter has neither.
    std::vector<std::string> SweepValues(const std::string& name) const;

private:
    struct Entry {
        AmiParameter param;   // a copy: the string outlives the file it came from
        std::string sValue;   // as written into the text (strings quoted)
    };
    Entry& Lookup(const std::string& name);
    const Entry& Lookup(const std::string& name) const;

    std::string m_sRoot;
    std::vector<Entry> m_vEntries;  // inputs in file order
    std::string m_sKnown;           // their names, for messages
};

}  // namespace amihost
