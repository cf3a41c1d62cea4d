// JsonWriter: minimal pretty-printing JSON emitter.
#include "tools/JsonWriter.h"

#include <cmath>
#include <cstdio>

namespace amihost {

std::string JsonWriter::Quote(const std::string& text) {
    std::string out = "\"";
    for (unsigned char c : text) {
        switch (c) {
            case '"': out += "\\\""; break;
            case '\\': out += "\\\\"; break;
            case '\n': out += "\\n"; break;
            case '\r': out += "\\r"; break;
            case '\t': out += "\\t"; break;
            default:
                if (c < 0x20) {
                    char buf[8];
                    std::snprintf(buf, sizeof buf, "\\u%04x", c);
                    out += buf;
                } else {
                    out += static_cast<char>(c);
                }
        }
    }
    return out + "\"";
}

void JsonWriter::BeforeValue() {
    if (m_bAfterKey) {
        m_bAfterKey = false;
        return;
    }
    if (!m_vFirst.empty()) {
        if (!m_vFirst.back()) m_sText += ",";
        m_vFirst.back() = false;
        m_sText += "\n" + std::string(2 * m_vFirst.size(), ' ');
    }
}

void JsonWriter::Open(char bracket) {
    BeforeValue();
    m_sText += bracket;
    m_vFirst.push_back(true);
}

void JsonWriter::Close(char bracket) {
    const bool empty = m_vFirst.back();
    m_vFirst.pop_back();
    if (!empty) m_sText += "\n" + std::string(2 * m_vFirst.size(), ' ');
    m_sText += bracket;
    if (m_vFirst.empty()) m_sText += "\n";
}

JsonWriter& JsonWriter::BeginObject() { Open('{'); return *this; }
JsonWriter& JsonWriter::EndObject() { Close('}'); return *this; }
JsonWriter& JsonWriter::BeginArray() { Open('['); return *this; }
JsonWriter& JsonWriter::EndArray() { Close(']'); return *this; }

JsonWriter& JsonWriter::Key(const std::string& name) {
    BeforeValue();
    m_sText += Quote(name) + ": ";
    m_bAfterKey = true;
    return *this;
}

JsonWriter& JsonWriter::Value(const std::string& text) {
    BeforeValue();
    m_sText += Quote(text);
    return *this;
}

JsonWriter& JsonWriter::Value(const char* text) { return Value(std::string(text)); }

JsonWriter& JsonWriter::Value(double number) {
    if (!std::isfinite(number)) return Null();
    BeforeValue();
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.17g", number);
    m_sText += buf;
    return *this;
}

JsonWriter& JsonWriter::Value(long long number) {
    BeforeValue();
    m_sText += std::to_string(number);
    return *this;
}

JsonWriter& JsonWriter::Value(bool flag) {
    BeforeValue();
    m_sText += flag ? "true" : "false";
    return *this;
}

JsonWriter& JsonWriter::Null() {
    BeforeValue();
    m_sText += "null";
    return *this;
}

}  // namespace amihost
