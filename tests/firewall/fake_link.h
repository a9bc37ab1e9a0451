// fake_link.h - a kernel for tests: it lists a rule set, and fails when told to.
#pragma once

#include <linux/netfilter/nf_tables.h>

#include <functional>
#include <string>
#include <utility>

#include "firewall/nf_link.h"
#include "tests/firewall/rule_writer.h"

namespace pennywort::tests {

// Lists everything as the answer to the request for tables.
class fake_link final : public firewall::nf_link {
public:
    explicit fake_link(std::string messages) : m_messages(std::move(messages)) {}

    outcome<std::string> ask(std::string request) override {
        ++asked;
        const int kind = static_cast<unsigned char>(request[4]);
        if (asked == failing_at) return why;
        if (kind == NFT_MSG_GETGEN) {
            return message_text(NFT_MSG_NEWGEN, 0,
                                attribute_number(NFTA_GEN_ID, next_generation()));
        }
        return kind == NFT_MSG_GETTABLE ? m_messages : std::string();
    }

    int asked = 0;
    int failing_at = 0;
    failure why;
    std::function<std::uint32_t()> next_generation = [] { return 7u; };

private:
    std::string m_messages;
};

}  // namespace pennywort::tests
