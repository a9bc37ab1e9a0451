// own_messages.cpp - zXML with a response: own_messages FILE. "parse" makes the tree that zXMLRPC
// reads values from, "read" does that and asks for every value too, "write" makes XML of the tree.
#include <cstdint>

#include "bench/xmlrpc/measured.h"
#include "loam/xml.h"
#include "loam/xmlrpc.h"

namespace {

zStatus parse(const std::string& xml, zRecord& out) {
    return zXML::ParseBuffer(255, &out, xml.data(), static_cast<std::int32_t>(xml.size()));
}

std::size_t read(const zXMLRPC::Value& value) {
    std::size_t count = 1;
    std::int32_t number = 0;
    double real = 0;
    bool flag = false;
    zString text;
    const auto type = value.GetType();
    if (type == zXMLRPC::Type::int32) value.AsInt32(number);
    if (type == zXMLRPC::Type::real) value.AsDouble(real);
    if (type == zXMLRPC::Type::boolean) value.AsBool(flag);
    if (type == zXMLRPC::Type::text) value.AsString(text);
    if (type == zXMLRPC::Type::bytes) value.AsBytes(text);
    if (type == zXMLRPC::Type::date) value.AsDate(text);
    const std::uint32_t items = value.Count();
    for (std::uint32_t i = 0; i < items; ++i) count += read(value.Item(i));
    return count;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    const std::string xml = file_bytes(argv[1]);
    measure("parse", [&] {
        zRecord record;
        return parse(xml, record) == 0 ? xml.size() : 0;
    });
    measure("read", [&] {
        zRecord record;
        zXMLRPC::Value value;
        const bool is_read = parse(xml, record) == 0 && zXMLRPC(record).Result(value) == 0;
        return is_read && read(value) > 0 ? xml.size() : 0;
    });
    zRecord record;
    parse(xml, record);
    measure("write", [&] {
        zBuffer out;
        zXML::RecordToBuffer(&out, record, 3, false, true);
        return static_cast<std::size_t>(out.Length());
    });
}
