// loam/xmlrpc.h - zXMLRPC, a view of a record tree as an XML-RPC message: a call, or a response
// with a result or a fault. zXML reads and writes the tree.
//
// Threads: a message and all views of it belong to one thread at a time.
#pragma once

#include <cstdint>
#include <string>

#include "loam/export.h"
#include "loam/record.h"
#include "loam/string.h"
#include "loam/types.h"

// Nothing is copied or kept: every operation reads or changes the record, which must outlive the
// view and all values that came from it. Whatever changes a tree ends the values that lie in what
// was replaced. Nothing here throws, but for the texts that MethodName and MemberName return, which
// take memory; -1 means that memory is out, or that a view refers to nothing.
class LOAM_API zXMLRPC {
public:
    static constexpr zStatus k_no_message = -2021;    // no XML-RPC message, or not of this kind
    static constexpr zStatus k_other_type = -2022;    // the value is of another type
    static constexpr zStatus k_bad_value = -2023;     // the text is not one of its type
    static constexpr zStatus k_out_of_range = -2024;  // a number that does not fit
    static constexpr zStatus k_is_fault = -2025;      // a fault has no result

    enum class Kind { other, call, response, fault };
    enum class Type {
        unknown,  // refers to nothing, or is of no type that XML-RPC has
        int32,    // <i4>, <int>
        int64,    // <i8>
        boolean,
        text,   // <string>, and a value without a type
        real,   // <double>
        date,   // <dateTime.iso8601>
        bytes,  // <base64>
        nil,
        array,
        structure
    };

    // One value: a <value> element of the tree. Types of Apache's extensions (ex:nil, ex:i8) count
    // as those without the prefix.
    class LOAM_API Value {
    public:
        // Refers to nothing.
        Value() = default;
        bool IsSet() const { return m_record != nullptr; }
        Type GetType() const;

        // Read the value; `out` stays as it is unless the status is 0. White space around numbers,
        // booleans and dates does not count. AsInt32 and AsInt64 take both widths and AsDouble
        // takes integers too; nothing else is converted.
        zStatus AsInt32(std::int32_t& out) const;
        zStatus AsInt64(std::int64_t& out) const;
        zStatus AsBool(bool& out) const;
        zStatus AsDouble(double& out) const;
        zStatus AsString(zString& out) const;
        // As it stands there, such as "20260131T14:08:55"; nothing is checked.
        zStatus AsDate(zString& out) const;
        // May hold NULs; their number is the length of `out`.
        zStatus AsBytes(zString& out) const;
        bool IsNil() const { return GetType() == Type::nil; }

        // Elements of an array or members of a structure; 0 for anything else.
        std::uint32_t Count() const;
        // Of an array or a structure, in order; unset out of range.
        Value Item(std::uint32_t index) const;
        // Empty out of range.
        std::string MemberName(std::uint32_t index) const;
        // The first of this name; unset where there is none.
        Value Member(const char* name) const;

        // Replace what the value was. Text is UTF-8; one that XML cannot hold is refused when the
        // message is written. A double is written with as many digits as bring back every bit, and
        // without an exponent; infinities and NaN have no form: k_bad_value.
        zStatus SetInt32(std::int32_t value);
        zStatus SetInt64(std::int64_t value);
        zStatus SetBool(bool value);
        zStatus SetDouble(double value);
        zStatus SetString(const char* text, std::uint32_t length = zString::k_to_nul);
        zStatus SetDate(const char* iso8601);
        zStatus SetBytes(const void* bytes, std::uint32_t length);
        zStatus SetNil();
        // Without elements; AddItem and AddMember append them.
        zStatus SetArray();
        zStatus SetStruct();
        // An empty text until it is set to something. Unset when this is no array or structure, or
        // when memory is out. A second member of a name is not looked for.
        Value AddItem();
        Value AddMember(const char* name);
        // The same as `other`, whatever that is.
        zStatus SetCopy(const Value& other);

    private:
        friend class zXMLRPC;
        explicit Value(zRecord* record) : m_record(record) {}

        zRecord* m_record = nullptr;
    };

    explicit zXMLRPC(zRecord& message);
    virtual ~zXMLRPC();

    // `other` for a record that is no XML-RPC message, such as a page of HTML.
    Kind GetKind() const;
    // Of a call; empty otherwise.
    std::string MethodName() const;
    std::uint32_t ParamCount() const;
    Value Param(std::uint32_t index) const;
    // Of a response: `out` becomes its value. k_is_fault for a fault.
    zStatus Result(Value& out) const;
    // Of a fault. k_no_message when this is none, k_bad_value when its code or its message are not
    // there or not of their types.
    zStatus Fault(zString& message, std::int32_t& code) const;

    // Each replaces all that the record holds; a failure for want of memory leaves it empty.
    zStatus SetCall(const char* method);
    // `out` becomes the response's value, an empty text until it is set.
    zStatus SetResponse(Value& out);
    zStatus SetFault(const char* message, std::int32_t code);
    // Appends a parameter to a call; unset when this is none, or when memory is out.
    Value AddParam();

private:
    zRecord& m_message;
};
