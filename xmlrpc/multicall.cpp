// multicall.cpp - cXMLRPCMulticall of include/xmlrpc.h.
#include "core/run/guarded.h"
#include "core/statuses.h"
#include "loam/xmlrpc.h"
#include "xmlrpc.h"

using pennywort::k_failed;
using pennywort::k_ok;

namespace {

// The array of calls, of which each is a structure of a name and an array of parameters.
zXMLRPC::Value calls_of(zRecord& request) { return zXMLRPC(request).Param(0); }

zStatus copy_params(const zXMLRPC& call, zXMLRPC::Value params) {
    if (params.SetArray() != k_ok) return k_failed;
    for (std::uint32_t i = 0; i < call.ParamCount(); ++i) {
        const zStatus status = params.AddItem().SetCopy(call.Param(i));
        if (status != k_ok) return status;
    }
    return k_ok;
}

// A fault stands in the place of a result as a structure of its own.
zStatus fault_from(const zXMLRPC::Value& item, zRecord& out) {
    std::int32_t code = 0;
    zString message;
    if (item.Member("faultCode").AsInt32(code) != k_ok) return zXMLRPC::k_no_message;
    const zXMLRPC::Value words = item.Member("faultString");
    const zStatus status = words.AsString(message);
    if (status == k_failed && words.IsSet()) return k_failed;
    if (status != k_ok) return zXMLRPC::k_no_message;
    return zXMLRPC(out).SetFault(message.CString(), code);
}

// Into a record of its own first: `out` may be the record that holds the item.
zStatus result_from(const zXMLRPC::Value& item, zRecord& out) {
    return pennywort::run::guarded_or(k_failed, "cXMLRPCMulticall", "a result", [&] {
        zRecord own;
        zXMLRPC::Value value;
        zStatus status = zXMLRPC(own).SetResponse(value);
        if (status == k_ok) status = value.SetCopy(item);
        if (status == k_ok) out = own;
        return status;
    });
}

zStatus response_from(const zXMLRPC::Value& item, zRecord& out) {
    if (item.GetType() == zXMLRPC::Type::structure) return fault_from(item, out);
    // Each result is alone in an array, which tells it from a fault.
    if (item.GetType() != zXMLRPC::Type::array || item.Count() != 1) return zXMLRPC::k_no_message;
    return result_from(item.Item(0), out);
}

}  // namespace

cXMLRPCMulticall::cXMLRPCMulticall(zRecord& request) : m_request(&request) {
    zXMLRPC message(request);
    if (message.SetCall("system.multicall") == k_ok) message.AddParam().SetArray();
}

zStatus cXMLRPCMulticall::AddCall(zRecord& call) {
    const zXMLRPC message(call);
    if (message.GetKind() != zXMLRPC::Kind::call) return zXMLRPC::k_no_message;
    zXMLRPC::Value one = calls_of(*m_request).AddItem();
    if (one.SetStruct() != k_ok) return k_failed;
    const zStatus named = pennywort::run::guarded_or(k_failed, "cXMLRPCMulticall", "a name", [&] {
        return one.AddMember("methodName").SetString(message.MethodName().c_str());
    });
    return named != k_ok ? named : copy_params(message, one.AddMember("params"));
}

std::uint32_t cXMLRPCMulticall::CallCount() const { return calls_of(*m_request).Count(); }

zStatus cXMLRPCMulticall::GetResponse(zRecord& response, std::uint32_t index, zRecord& out) {
    const zXMLRPC message(response);
    zXMLRPC::Value results;
    zString text;
    std::int32_t code = 0;
    zStatus status = message.Fault(text, code);
    if (status == k_ok) return zXMLRPC(out).SetFault(text.CString(), code);
    if (status != k_failed) status = message.Result(results);
    if (status == k_ok) status = response_from(results.Item(index), out);
    if (status != k_ok) out.MakeEmpty();
    return status == zXMLRPC::k_is_fault ? zXMLRPC::k_no_message : status;
}
