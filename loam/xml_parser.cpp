// loam/xml_parser.cpp - the reading half of loam/xml.h, over expat.
#include <expat.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "loam/ascii.h"
#include "loam/out_of_memory.h"
#include "loam/record_block.h"
#include "loam/record_state.h"
#include "loam/utf.h"
#include "loam/utf8.h"
#include "loam/xml.h"
#include "loam/xml_limits.h"
#include "loam/xml_memory.h"
#include "loam/xml_text.h"

using loam::record_access;
using loam::record_key;
using loam::record_maker;

namespace {

struct parser_deleter {
    void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
};
using parser_owner = std::unique_ptr<std::remove_pointer_t<XML_Parser>, parser_deleter>;

bool is_white(std::string_view text) {
    return std::all_of(text.begin(), text.end(), loam::is_xml_space);
}

bool is_ascii(std::string_view text) {
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

// Expat takes three signs of Latin-1 for letters that no edition of XML has in its names. Without
// this, what was read could not be written.
bool is_taken_name(std::string_view name) { return is_ascii(name) || loam::is_xml_name(name); }

bool are_names(const char* element, const char** attributes) {
    if (!is_taken_name(element)) return false;
    for (; *attributes != nullptr; attributes += 2) {
        if (!is_taken_name(*attributes)) return false;
    }
    return true;
}

// What expat finds becomes records below `root`, which is empty at first and is filled by its
// public operations: it is the caller's, and may be of a derived class. All others are plain, and
// are made when their elements end: then it is known how much memory each takes.
class tree_builder {
public:
    tree_builder(zRecord& root, const loam::xml_limits& limits) : m_root(root), m_limits(limits) {}

    zStatus status() const { return m_status; }

    zStatus start(const char* name, const char** attributes) {
        const std::size_t attribute_count = count_of(attributes);
        if (++m_elements > m_limits.elements) return zXML::k_too_large;
        if (m_depth == m_limits.deepest) return zXML::k_too_deep;
        if (attribute_count > m_limits.attributes) return zXML::k_too_many_attributes;
        if (!are_names(name, attributes)) return zXML::k_malformed;
        const bool is_root = m_depth == 0;
        if (!is_root && m_ended.size() - innermost().first_child == m_limits.widest) {
            return zXML::k_too_wide;
        }
        open_element& opened = open();
        if (is_root) {
            fill_root(name, attributes);
        } else {
            opened.attributes.assign(attributes, attributes + 2 * attribute_count);
        }
        return 0;
    }

    void take_text(const char* text, int length) {
        if (m_depth > 0) innermost().text.append(text, static_cast<std::size_t>(length));
    }

    void end(const char* name) {
        const open_element& ended = innermost();
        const std::size_t children = m_ended.size() - ended.first_child;
        const bool has_text = !ended.text.empty() && (children == 0 || !is_white(ended.text));
        if (m_depth == 1) {
            if (has_text) m_root.SetString(zXML::k_text, ended.text);
            take_children(m_root, ended.first_child);
        } else {
            const std::size_t variables = 1 + ended.attributes.size() / 2 + (has_text ? 1 : 0);
            auto record = m_maker.make(variables, children);
            fill(*record, name, ended, has_text);
            take_children(*record, ended.first_child);
            m_ended.push_back(std::move(record));
        }
        --m_depth;
    }

    // Runs `work` in one of expat's callbacks, through which nothing may be thrown.
    template <typename function>
    void guarded(XML_Parser parser, function work) {
        if (m_status != 0) return;
        m_status = loam::unless_out_of_memory(work);
        if (m_status != 0) XML_StopParser(parser, XML_FALSE);
    }

private:
    // An element whose end has not come, with its text so far. Kept when it has, for the next one
    // at this depth.
    struct open_element {
        std::size_t first_child = 0;          // in m_ended
        std::vector<std::string> attributes;  // names and values in turn
        std::string text;
    };

    static std::size_t count_of(const char** attributes) {
        std::size_t count = 0;
        while (attributes[count] != nullptr) ++count;
        return count / 2;
    }

    open_element& innermost() { return m_open[m_depth - 1]; }

    open_element& open() {
        if (m_depth == m_open.size()) m_open.emplace_back();
        open_element& opened = m_open[m_depth++];
        opened.first_child = m_ended.size();
        opened.text.clear();
        return opened;
    }

    void fill_root(const char* name, const char** attributes) {
        m_root.SetCString(zXML::k_name, name);
        for (; *attributes != nullptr; attributes += 2) {
            m_root.SetCString(attributes[0], attributes[1]);
        }
    }

    // A document that is well-formed names no attribute twice.
    static void fill(zRecord& record, const char* name, const open_element& ended, bool has_text) {
        auto& variables = record_access::state_of(record).variables;
        variables.append(record_key(zXML::k_name), name);
        for (std::size_t i = 0; i < ended.attributes.size(); i += 2) {
            variables.append(std::string_view(ended.attributes[i]), ended.attributes[i + 1]);
        }
        if (has_text) variables.append(record_key(zXML::k_text), ended.text);
    }

    void take_children(zRecord& parent, std::size_t first) {
        auto& children = record_access::state_of(parent).children;
        children.reserve(m_ended.size() - first);
        for (std::size_t i = first; i < m_ended.size(); ++i) {
            record_access::state_of(*m_ended[i]).parent = &parent;
            children.emplace_back(m_ended[i].release());
        }
        m_ended.resize(first);
    }

    zRecord& m_root;
    const loam::xml_limits& m_limits;
    std::vector<open_element> m_open;
    std::size_t m_depth = 0;
    record_maker m_maker;
    // Those that have no parent yet, since that is open.
    std::vector<std::unique_ptr<zRecord>> m_ended;
    std::uint32_t m_elements = 0;
    zStatus m_status = 0;
};

// What the document declares itself to be, as far as it matters.
enum class charset { unicode, ascii, latin1 };

charset charset_of(const char* encoding) {
    if (encoding == nullptr) return charset::unicode;
    if (loam::equal_ignoring_case(encoding, "US-ASCII")) return charset::ascii;
    return loam::equal_ignoring_case(encoding, "ISO-8859-1") ? charset::latin1 : charset::unicode;
}

// Expat has one error for a byte that is not of the encoding and for a character that may not stand
// where it stands. Only the bytes tell which it was.
class bad_bytes {
public:
    explicit bad_bytes(std::string_view document) : m_document(document) {}

    bool are_at(XML_Index index, charset declared) const {
        if (index < 0 || static_cast<std::size_t>(index) >= m_document.size()) return false;
        const std::string_view rest = m_document.substr(static_cast<std::size_t>(index));
        if (declared == charset::latin1) return false;  // each byte is a character
        if (declared == charset::ascii) return static_cast<unsigned char>(rest[0]) > 0x7F;
        return is_wide() ? begins_with_surrogate(rest) : !loam::first_character(rest).is_valid;
    }

    // Whether a UTF-16 document has half of a pair without its other half: expat may take the two
    // bytes behind it for that half.
    bool have_half_pairs() const {
        bool is_after_high = false;
        for (std::size_t at = 0; is_wide() && at + 1 < m_document.size(); at += 2) {
            const auto high =
                static_cast<unsigned char>(m_document[at + (is_big_endian() ? 0 : 1)]);
            const bool is_low_half = high >= 0xDC && high <= 0xDF;
            if (is_low_half != is_after_high) return true;
            is_after_high = high >= 0xD8 && high <= 0xDB;
        }
        return is_after_high;
    }

private:
    bool is_wide() const {
        return m_document.size() > 1 &&
               (is_big_endian() || m_document[1] == '\0' || m_document.starts_with("\xFF\xFE"));
    }
    bool is_big_endian() const {
        return m_document[0] == '\0' || m_document.starts_with("\xFE\xFF");
    }
    bool begins_with_surrogate(std::string_view rest) const {
        if (rest.size() < 2) return true;
        const auto high = static_cast<unsigned char>(rest[is_big_endian() ? 0 : 1]);
        return high >= 0xD8 && high <= 0xDF;
    }

    std::string_view m_document;
};

zStatus status_of(XML_Parser parser, std::string_view document, charset declared) {
    switch (XML_GetErrorCode(parser)) {
        case XML_ERROR_NO_MEMORY:
            return -1;
        case XML_ERROR_UNDEFINED_ENTITY:
            return zXML::k_entity;
        case XML_ERROR_UNKNOWN_ENCODING:
        case XML_ERROR_INCORRECT_ENCODING:
            return zXML::k_encoding;
        case XML_ERROR_INVALID_TOKEN:
        case XML_ERROR_PARTIAL_CHAR:
            return bad_bytes(document).are_at(XML_GetCurrentByteIndex(parser), declared)
                       ? zXML::k_encoding
                       : zXML::k_malformed;
        default:
            return zXML::k_malformed;
    }
}

struct parsing {
    XML_Parser parser;
    std::string_view document;
    tree_builder builder;
    charset declared = charset::unicode;
};

// A mark and a declaration that say different things; expat believes the declaration.
void on_declaration(void* user, const char*, const char* encoding, int) {
    auto& one = *static_cast<parsing*>(user);
    one.declared = charset_of(encoding);
    if (encoding == nullptr || !one.document.starts_with("\xEF\xBB\xBF")) return;
    const bool is_same = loam::equal_ignoring_case(encoding, "UTF-8");
    one.builder.guarded(one.parser, [&] { return is_same ? 0 : zXML::k_encoding; });
}

void on_start(void* user, const char* name, const char** attributes) {
    auto& one = *static_cast<parsing*>(user);
    one.builder.guarded(one.parser, [&] { return one.builder.start(name, attributes); });
}

void on_end(void* user, const char* name) {
    auto& one = *static_cast<parsing*>(user);
    one.builder.guarded(one.parser, [&] {
        one.builder.end(name);
        return 0;
    });
}

void on_text(void* user, const char* text, int length) {
    auto& one = *static_cast<parsing*>(user);
    one.builder.guarded(one.parser, [&] {
        one.builder.take_text(text, length);
        return 0;
    });
}

void on_doctype(void* user, const char*, const char*, const char*, int) {
    auto& one = *static_cast<parsing*>(user);
    one.builder.guarded(one.parser, [] { return zXML::k_doctype; });
}

}  // namespace

zStatus loam::parse_xml(zRecord& out, std::string_view document, const xml_limits& limits) {
    if (bad_bytes(document).have_half_pairs()) return zXML::k_encoding;
    const parser_owner parser(XML_ParserCreate_MM(nullptr, &xml_memory(), nullptr));
    if (parser == nullptr) return -1;
    parsing one{parser.get(), document, tree_builder(out, limits), charset::unicode};
    XML_SetUserData(parser.get(), &one);
    XML_SetElementHandler(parser.get(), on_start, on_end);
    XML_SetCharacterDataHandler(parser.get(), on_text);
    XML_SetXmlDeclHandler(parser.get(), on_declaration);
    XML_SetStartDoctypeDeclHandler(parser.get(), on_doctype);
    const XML_Status result =
        XML_Parse(parser.get(), document.data(), static_cast<int>(document.size()), XML_TRUE);
    if (one.builder.status() != 0) return one.builder.status();
    return result == XML_STATUS_OK ? 0 : status_of(parser.get(), document, one.declared);
}

zStatus zXML::ParseBuffer(std::uint32_t, zRecord* out, const char* xml, std::int32_t length) {
    if (out == nullptr) return -1;
    out->MakeEmpty();
    const std::string_view document = loam::text_view(xml, length);
    if (document.size() > static_cast<std::size_t>(k_most_bytes)) return k_too_large;
    const zStatus status =
        loam::unless_out_of_memory([&] { return loam::parse_xml(*out, document, {}); });
    if (status != 0) out->MakeEmpty();
    return status;
}
