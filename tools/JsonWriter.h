// JsonWriter: builds a JSON text with two-space indentation, one member or
// element per line. Doubles are written with 17 significant digits so that
// they read back to the same value; NaN and infinities become null.
#pragma once

#include <string>
#include <vector>

namespace amihost {

class JsonWriter {
public:
    JsonWriter& BeginObject();
    JsonWriter& EndObject();
    JsonWriter& BeginArray();
    JsonWriter& EndArray();
    // The member name of the next value, inside an object.
    JsonWriter& Key(const std::string& name);

    JsonWriter& Value(const std::string& text);
    JsonWriter& Value(const char* text);
    JsonWriter& Value(double number);
    JsonWriter& Value(long long number);
    JsonWriter& Value(bool flag);
    JsonWriter& Null();

    const std::string& Text() const { return m_sText; }

    // text with quotes, backslashes and control characters escaped, quoted.
    static std::string Quote(const std::string& text);

private:
    void BeforeValue();
    void Open(char bracket);
    void Close(char bracket);

    std::string m_sText;
    std::vector<bool> m_vFirst;   // per open container: nothing written in it yet
    bool m_bAfterKey = false;
};

}  // namespace amihost
