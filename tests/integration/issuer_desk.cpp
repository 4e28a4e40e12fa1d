// Texts to the issuer model and back.
#include "issuer_desk.h"

namespace qaven::test {

using virtual_issuer::CryptogramKind;
using virtual_issuer::Field55;

std::string profile_file(std::string_view name) {
    return std::string(QAVEN_PROFILES) + "/" + std::string(name) + ".json";
}

IssuerDesk::IssuerDesk(std::string_view profile)
    : issuer_(virtual_issuer::Issuer::from_profile(profile_file(profile))) {}

virtual_issuer::Verdict IssuerDesk::arqc(const std::string& field55) const {
    return issuer_.verify(Field55::parse(field55), CryptogramKind::kRequest);
}

virtual_issuer::Verdict IssuerDesk::tc(const std::string& tc) const {
    return issuer_.verify(Field55::parse(tc), CryptogramKind::kTransactionCertificate);
}

std::string IssuerDesk::answer(const std::string& field55, const Reply& reply) const {
    virtual_issuer::Answer answer;
    answer.arc = {static_cast<std::uint8_t>(reply.response_code.at(0)),
                  static_cast<std::uint8_t>(reply.response_code.at(1))};
    answer.genuine_authentication = reply.genuine_authentication;
    answer.genuine_script_macs = reply.genuine_script_macs;
    answer.script_template = reply.script_template;
    answer.script_identifier = reply.script_identifier;
    for (const std::string& command : reply.script) {
        answer.script.push_back(virtual_issuer::parse_script_command(command));
    }
    return virtual_card::to_hex(issuer_.answer(Field55::parse(field55), answer));
}

} // namespace qaven::test
