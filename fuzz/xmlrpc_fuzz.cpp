// xmlrpc_fuzz.cpp - zXML and zXMLRPC with any document: what is read is written and read again the
// same, and every value can be asked for everything.
#include <string>
#include <string_view>

#include "fuzz/fuzz.h"
#include "loam/xml.h"
#include "loam/xmlrpc.h"

namespace {

using Value = zXMLRPC::Value;

constexpr int k_deepest = 50;

void read_value(const Value& value, int depth) {
    std::int32_t narrow = 0;
    std::int64_t wide = 0;
    double real = 0;
    bool flag = false;
    zString text;
    zString bytes;
    const bool is_narrow = value.AsInt32(narrow) == 0;
    require(!is_narrow || (value.AsInt64(wide) == 0 && wide == narrow), "an int is a long one too");
    require(!is_narrow || (value.AsDouble(real) == 0 && real == narrow), "and a double");
    require(value.AsBool(flag) != 0 || !is_narrow, "a value is of one type");
    require(value.AsString(text) != 0 || value.AsBytes(bytes) != 0, "text is not bytes");
    value.AsBytes(bytes);
    value.AsDate(text);
    require(!value.Item(value.Count()).IsSet(), "there is nothing behind the last");
    if (depth == k_deepest) return;
    for (std::uint32_t i = 0; i < value.Count(); ++i) {
        const std::string name = value.MemberName(i);
        require(name.empty() || value.Member(name.c_str()).IsSet() || !value.Item(i).IsSet() ||
                    name.find('\0') == std::string::npos,
                "a member is found by its name");
        read_value(value.Item(i), depth + 1);
    }
}

void read_message(zRecord& record) {
    zXMLRPC message(record);
    Value result;
    zString text;
    std::int32_t code = 0;
    const zXMLRPC::Kind kind = message.GetKind();
    require((message.Result(result) == 0) == (kind == zXMLRPC::Kind::response), "a result");
    require(message.Fault(text, code) != 0 || kind == zXMLRPC::Kind::fault, "a fault");
    read_value(result, 0);
    for (std::uint32_t i = 0; i < message.ParamCount(); ++i) read_value(message.Param(i), 0);
}

std::string written(const zRecord& record) {
    zBuffer out;
    const zStatus status = zXML::RecordToBuffer(&out, record, 3, false, true);
    // Nothing but its name can be wrong with what was read: the parser has the names of an older
    // edition of XML, which are fewer.
    require(status == 0, "what was read can be written");
    return {out.Data(), out.Length()};
}

void look(const std::uint8_t* data, std::size_t size) {
    zRecord record;
    const auto length = static_cast<std::int32_t>(size);
    if (zXML::ParseBuffer(255, &record, reinterpret_cast<const char*>(data), length) != 0) {
        require(record.VariableCount() == 0 && record.ChildCount() == 0, "a fault leaves nothing");
        return;
    }
    read_message(record);
    const std::string once = written(record);
    zRecord again;
    require(
        zXML::ParseBuffer(255, &again, once.data(), static_cast<std::int32_t>(once.size())) == 0,
        "what was written is read");
    require(written(again) == once, "and is the same");
}

const fuzz_target k_target("xmlrpc", look);

}  // namespace
