// host/call/call_argument.cpp - see the header for the contract.
#include "host/call/call_argument.h"

#include <cstddef>
#include <cstdint>
#include <unordered_set>
#include <vector>

namespace pennywort::host {

namespace {

// Looks at what the value would no longer tell.
class argument_check final : public nlohmann::json_sax<json> {
public:
    const std::string& reason() const { return m_reason; }

    bool null() override { return true; }
    bool boolean(bool) override { return true; }
    bool number_integer(std::int64_t) override { return true; }
    bool number_unsigned(std::uint64_t) override { return true; }
    // A whole number comes here when it does not fit.
    bool number_float(double, const std::string& digits) override {
        const bool is_whole = digits.find_first_of(".eE") == std::string::npos;
        return is_whole ? fail(": a number does not fit into 64 bits") : true;
    }
    bool string(std::string&) override { return true; }
    bool binary(json::binary_t&) override { return true; }
    bool start_object(std::size_t) override {
        m_names.emplace_back();
        return true;
    }
    bool key(std::string& name) override {
        return m_names.back().insert(name).second ? true : fail(": a name stands twice in it");
    }
    bool end_object() override {
        m_names.pop_back();
        return true;
    }
    bool start_array(std::size_t) override { return true; }
    bool end_array() override { return true; }
    bool parse_error(std::size_t, const std::string& last, const json::exception& error) override {
        const bool is_number = dynamic_cast<const json::out_of_range*>(&error) != nullptr;
        return fail(is_number ? ": " + last + " is too large for a double" : "");
    }

private:
    bool fail(std::string reason) {
        m_reason = std::move(reason);
        return false;
    }

    std::vector<std::unordered_set<std::string>> m_names;  // of the objects that are open
    std::string m_reason;
};

}  // namespace

std::string read_argument(const std::string& text, json& value) {
    argument_check check;
    const bool is_fit = json::sax_parse(text, &check);
    if (is_fit) value = json::parse(text, nullptr, false);
    if (is_fit && !value.is_discarded()) return {};
    if (!check.reason().empty()) return check.reason();
    return " is no JSON; a text needs its quotation marks: '\"" + text + "\"'";
}

}  // namespace pennywort::host
