// Offline data authentication and cardholder verification, as a terminal does them that knows the
// key of the certification authority and otherwise only what the card gives over APDUs: EMV Book 2,
// clauses 5 and 6, Book 3, clause 10 and annex C. Keys and hashes are taken through OpenSSL's
// interfaces for keys, which the card does not use.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>

#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/param_build.h>
#include <openssl/rsa.h>

#include "counter_terminal.h"

namespace qaven::card_test {
namespace {

using virtual_card::append;
using virtual_card::concatenate;
using virtual_card::find_object;
using virtual_card::to_hex;

struct PublicKey {
    Bytes modulus;
    Bytes exponent;
};

// The block under a signature; nothing when the signature is not as long as the modulus, or is no
// number below it.
std::optional<Bytes> recover(const PublicKey& key, ByteView signature) {
    const auto number = [](const Bytes& bytes) {
        return std::unique_ptr<BIGNUM, decltype(&BN_free)>(
            BN_bin2bn(bytes.data(), static_cast<int>(bytes.size()), nullptr), &BN_free);
    };
    const auto n = number(key.modulus);
    const auto e = number(key.exponent);
    const std::unique_ptr<OSSL_PARAM_BLD, decltype(&OSSL_PARAM_BLD_free)> builder(
        OSSL_PARAM_BLD_new(), &OSSL_PARAM_BLD_free);
    OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_RSA_N, n.get());
    OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_RSA_E, e.get());
    const std::unique_ptr<OSSL_PARAM, decltype(&OSSL_PARAM_free)> parameters(
        OSSL_PARAM_BLD_to_param(builder.get()), &OSSL_PARAM_free);
    using Context = std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)>;
    const Context maker(EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr), &EVP_PKEY_CTX_free);
    EVP_PKEY* made = nullptr;
    if (EVP_PKEY_fromdata_init(maker.get()) != 1 ||
        EVP_PKEY_fromdata(maker.get(), &made, EVP_PKEY_PUBLIC_KEY, parameters.get()) != 1) {
        return std::nullopt;
    }
    const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> owner(made, &EVP_PKEY_free);
    const Context verifier(EVP_PKEY_CTX_new(made, nullptr), &EVP_PKEY_CTX_free);
    Bytes block(key.modulus.size());
    std::size_t size = block.size();
    if (signature.size() != key.modulus.size() ||
        EVP_PKEY_verify_recover_init(verifier.get()) != 1 ||
        EVP_PKEY_CTX_set_rsa_padding(verifier.get(), RSA_NO_PADDING) != 1 ||
        EVP_PKEY_verify_recover(verifier.get(), block.data(), &size, signature.data(),
                                signature.size()) != 1) {
        return std::nullopt;
    }
    return block;
}

constexpr std::size_t hash_size = 20;

// What stands between header and hash of a recovered block, when header, format, trailer and hash
// are right; `behind` is under the hash too.
std::optional<Bytes> content_of(const PublicKey& key, ByteView signature, std::uint8_t format,
                                ByteView behind) {
    const auto block = recover(key, signature);
    if (!block || block->front() != 0x6A || block->at(1) != format || block->back() != 0xBC) {
        return std::nullopt;
    }
    const ByteView inside = ByteView(*block).subspan(1, block->size() - 2);
    const ByteView content = inside.first(inside.size() - hash_size);
    const ByteView hash = inside.last(hash_size);
    Bytes computed(hash_size);
    const Bytes input = concatenate({content, behind});
    EVP_Digest(input.data(), input.size(), computed.data(), nullptr, EVP_sha1(), nullptr);
    return std::equal(hash.begin(), hash.end(), computed.begin())
               ? std::optional(Bytes(content.begin(), content.end()))
               : std::nullopt;
}

// The certification authority's key, as it is published with the profiles.
std::optional<PublicKey> authority_key(const Bytes& index) {
    std::ifstream manual(std::filesystem::path(QAVEN_PROFILES) / "README.md");
    const std::string text((std::istreambuf_iterator<char>(manual)),
                           std::istreambuf_iterator<char>());
    const std::size_t named = text.find("RID `A000000333`, index `" + to_hex(index) + "`");
    if (named == std::string::npos) {
        return std::nullopt;
    }
    const std::string exponent = "exponent `";
    const std::size_t begin = text.find("\n\n", named);
    std::string modulus = text.substr(begin, text.find("\n\n", begin + 2) - begin);
    std::erase(modulus, '\n');
    return PublicKey{hex(modulus),
                     hex(text.substr(text.find(exponent, named) + exponent.size(), 2))};
}

struct KeyObjects {
    Bytes certificate;
    Bytes remainder;
    Bytes exponent;
    Bytes static_data;
};

struct CertifiedKey {
    std::string subject;
    PublicKey key;
};

constexpr std::uint8_t issuer_certificate = 0x02;
constexpr std::uint8_t icc_certificate = 0x04;

// A certificate holds form, subject, expiry, serial number, two algorithms, two lengths and the
// first part of the modulus.
std::optional<CertifiedKey> certified_key(const PublicKey& signer, std::uint8_t form,
                                          const KeyObjects& objects) {
    const auto content =
        content_of(signer, objects.certificate, form,
                   concatenate({objects.remainder, objects.exponent, objects.static_data}));
    if (!content) {
        return std::nullopt;
    }
    const std::size_t subject_size = form == issuer_certificate ? 4 : 10;
    constexpr std::size_t fixed_size = 9;
    const ByteView view = ByteView(*content).subspan(1);
    const ByteView fixed = view.subspan(subject_size, fixed_size);
    const std::string expiry = to_hex(fixed.subspan(1, 1)) + to_hex(fixed.first(1));
    const ByteView first_part = view.subspan(subject_size + fixed_size);
    const std::size_t size = fixed[7];
    Bytes modulus(first_part.begin(), first_part.end());
    append(modulus, objects.remainder);
    if (expiry < "2504" || to_hex(fixed.subspan(5, 2)) != "0101" || modulus.size() != size ||
        fixed[8] != objects.exponent.size()) {
        return std::nullopt;
    }
    return CertifiedKey{to_hex(view.first(subject_size)), {modulus, objects.exponent}};
}

bool only_padding(ByteView bytes) {
    return std::ranges::all_of(bytes, [](std::uint8_t byte) { return byte == 0xBB; });
}

constexpr std::uint8_t sda = 0x40;
constexpr std::uint8_t dda = 0x20;
constexpr std::uint8_t cardholder_verification = 0x10;

// A terminal that goes by the card alone. What it finds against the card it says as a TVR.
class OfflineTerminal {
  public:
    OfflineTerminal(virtual_card::Icc& icc, std::string_view aid) : terminal_(icc) { read(aid); }

    bool promises(std::uint8_t bit) const { return (aip_.at(0) & bit) != 0; }
    CounterTerminal& counter() { return terminal_; }

    bool static_data_authentic() const {
        const auto issuer = issuer_key();
        const auto content =
            issuer ? content_of(*issuer, object(0x93), 0x03, static_data_) : std::nullopt;
        return content && content->at(1) == 0x01 && only_padding(ByteView(*content).subspan(4));
    }

    Reply sign(const std::string& unpredictable_number) {
        return terminal_.send("0088000004" + unpredictable_number + "00");
    }

    bool dynamic_data_authentic(const Reply& reply, const std::string& unpredictable_number) const {
        const Bytes answer = hex(reply.data);
        const auto signature = find_object(answer, reply.data.starts_with("77") ? 0x9F4B : 0x80);
        const auto icc = icc_key();
        const auto content = icc && signature
                                 ? content_of(*icc, *signature, 0x05, hex(unpredictable_number))
                                 : std::nullopt;
        if (!content || content->at(1) != 0x01) {
            return false;
        }
        const std::size_t data_size = content->at(2);
        const std::size_t number_size = content->at(3);
        return number_size >= 2 && number_size <= 8 && data_size == number_size + 1 &&
               only_padding(ByteView(*content).subspan(3 + data_size));
    }

    // Annex C3 of Book 3: the first rule that the terminal can follow and that does not fail.
    bool cardholder_verified(const std::vector<std::uint8_t>& supported, std::string_view pin) {
        const Bytes list = object(0x8E);
        for (std::size_t at = 8; at + 2 <= list.size(); at += 2) {
            const std::uint8_t method = list[at] & 0x3FU;
            const bool can = std::ranges::find(supported, method) != supported.end();
            if (!can && list[at + 1] == 0x03) {
                continue;
            }
            if (method == 0x01 ? terminal_.send("0020008008" + std::string(pin)).status == "9000"
                               : can || method == 0x1F) {
                return true;
            }
            if ((list[at] & 0x40U) == 0) {
                return false;
            }
        }
        return false;
    }

    // Clauses 10.3 to 10.5 of Book 3, for a purchase in the card's country on the terminal's date.
    Bytes verification_results() {
        Bytes results(5, 0x00);
        const auto against = [&results](std::size_t byte, std::uint8_t bit, bool when) {
            results.at(byte - 1) |= when ? bit : std::uint8_t{0};
        };
        const std::string today = terminal_.data.at(0x9A);
        const std::string moment = "5E6F7081";
        against(1, 0x80, !promises(sda) && !promises(dda));
        against(1, 0x40, promises(sda) && !static_data_authentic());
        against(1, 0x08, promises(dda) && !dynamic_data_authentic(sign(moment), moment));
        against(2, 0x80, to_hex(object(0x9F08)) != "0030");
        against(2, 0x40, to_hex(object(0x5F24)) < today);
        against(2, 0x20, to_hex(object(0x5F25)) > today);
        against(2, 0x10,
                to_hex(object(0x5F28)) != "0156" || (object(0x9F07).at(0) & 0x28U) != 0x28U);
        against(2, 0x08, terminal_.send("80CA9F1300").data == "9F13020000");
        against(3, 0x80,
                promises(cardholder_verification) &&
                    !cardholder_verified({0x01}, "26123456FFFFFFFF"));
        return results;
    }

    // Clause 10.7 of Book 3: what the issuer wants to be asked about, or declines.
    bool asked_for(TagNumber action_code, const Bytes& results) const {
        const Bytes code = object(action_code);
        EXPECT_EQ(code.size(), results.size());
        return !std::equal(
            results.begin(), results.end(), code.begin(),
            [](std::uint8_t result, std::uint8_t bits) { return (result & bits) == 0; });
    }

    Bytes object(TagNumber tag) const { return find_object(records_, tag).value_or(Bytes{}); }

  private:
    void read(std::string_view aid) {
        const Bytes pdol = find_object(hex(terminal_.select(aid).data), 0x9F38).value_or(Bytes{});
        Bytes values;
        const auto list = virtual_card::parse_dol(pdol).value();
        for (const auto& entry : list) {
            append(values, hex(terminal_.data.at(entry.tag)));
        }
        const Reply options =
            terminal_.send_with_data("80A80000", virtual_card::encode_object(0x83, values));
        const Bytes answer = hex(options.data);
        const bool constructed = options.data.starts_with("77");
        const Bytes both = constructed ? concatenate({find_object(answer, 0x82).value(),
                                                      find_object(answer, 0x94).value()})
                                       : find_object(answer, 0x80).value();
        aip_ = {both.begin(), both.begin() + 2};
        for (std::size_t at = 2; at + 4 <= both.size(); at += 4) {
            for (unsigned number = both[at + 1]; number <= both[at + 2]; ++number) {
                take_record(both[at], number, number < both[at + 1] + unsigned{both[at + 3]});
            }
        }
        if (!object(0x9F4A).empty()) {
            append(static_data_, aip_);
        }
    }

    void take_record(std::uint8_t file, unsigned number, bool is_signed) {
        const Bytes command = {0x00, 0xB2, static_cast<std::uint8_t>(number),
                               static_cast<std::uint8_t>(file | 0x04U), 0x00};
        const Bytes record = hex(terminal_.send(to_hex(command)).data);
        append(records_, record);
        if (is_signed) {
            append(static_data_, find_object(record, 0x70).value());
        }
    }

    std::optional<PublicKey> issuer_key() const {
        const auto authority = authority_key(object(0x8F));
        const auto found = authority
                               ? certified_key(*authority, issuer_certificate,
                                               {object(0x90), object(0x92), object(0x9F32), {}})
                               : std::nullopt;
        // The subject is the beginning of the card number, filled up.
        return found && to_hex(object(0x5A)).starts_with(found->subject.substr(0, 6)) &&
                       found->subject.ends_with("FF")
                   ? std::optional(found->key)
                   : std::nullopt;
    }

    std::optional<PublicKey> icc_key() const {
        const auto issuer = issuer_key();
        const auto found =
            issuer ? certified_key(*issuer, icc_certificate,
                                   {object(0x9F46), object(0x9F48), object(0x9F47), static_data_})
                   : std::nullopt;
        std::string pan = to_hex(object(0x5A));
        pan.resize(20, 'F');
        return found && found->subject == pan ? std::optional(found->key) : std::nullopt;
    }

    CounterTerminal terminal_;
    Bytes aip_;
    Bytes records_;
    Bytes static_data_;
};

TEST(OfflineAuthentication, FindsNothingAgainstTheShippedCards) {
    std::size_t applications = 0;
    for (const auto& entry : std::filesystem::directory_iterator(QAVEN_PROFILES)) {
        if (entry.path().extension() != ".json" || entry.path().stem() == "card-blocked") {
            continue;
        }
        Profile shipped = virtual_card::load_profile(entry.path());
        shipped.transmission = virtual_card::Transmission::kDirect;
        for (const auto& application : shipped.applications) {
            Card card(shipped);
            OfflineTerminal terminal(card, to_hex(application.aid));
            const bool used = application.last_online_atc != 0;
            const Bytes results = terminal.verification_results();
            EXPECT_EQ(to_hex(results), used ? "0000000000" : "0008000000") << entry.path();
            for (const TagNumber code : {0x9F0DU, 0x9F0EU}) {
                EXPECT_FALSE(terminal.asked_for(code, results)) << "even when it cannot go online";
            }
            EXPECT_EQ(terminal.asked_for(0x9F0F, results), !used) << entry.path();
            EXPECT_TRUE(terminal.promises(sda | dda | cardholder_verification)) << entry.path();
            ++applications;
        }
    }
    EXPECT_EQ(applications, 11U);
}

// The debit card with the value of one object changed by one bit, as a forger would hand it in.
Profile forged(TagNumber tag) {
    Profile other = profile("debit");
    std::size_t changed = 0;
    for (auto& record : other.applications.front().records) {
        for (auto& object : record.objects) {
            if (object.tag == tag) {
                object.value[object.value.size() / 2] ^= 0x02U;
                ++changed;
            }
        }
        record.content = virtual_card::encode_record(record.objects);
    }
    EXPECT_EQ(changed, 1U) << std::hex << tag;
    return other;
}

struct Judgement {
    bool static_data;
    bool dynamic_data;
    bool operator==(const Judgement&) const = default;
};

Judgement judged(const Profile& of) {
    Card card(of);
    OfflineTerminal terminal(card, debit_aid);
    return {terminal.static_data_authentic(),
            terminal.dynamic_data_authentic(terminal.sign("1A2B3C4D"), "1A2B3C4D")};
}

TEST(OfflineAuthentication, TellsAForgedCard) {
    EXPECT_EQ(judged(profile("debit")), (Judgement{true, true}));
    // The chain of keys, and what is signed: PAN, dates, country, CVM list, action codes.
    for (const TagNumber tag :
         {0x8FU, 0x90U, 0x92U, 0x9F32U, 0x5AU, 0x5F24U, 0x57U, 0x8EU, 0x9F0DU}) {
        EXPECT_EQ(judged(forged(tag)), (Judgement{false, false})) << std::hex << tag;
    }
    EXPECT_EQ(judged(forged(0x93)), (Judgement{false, true}));
    for (const TagNumber tag : {0x9F46U, 0x9F47U, 0x9F48U}) {
        EXPECT_EQ(judged(forged(tag)), (Judgement{true, false})) << std::hex << tag;
    }
    Profile other_interchange = profile("debit");
    other_interchange.applications.front().aip = {0x5C, 0x00};
    EXPECT_EQ(judged(other_interchange), (Judgement{false, false}));
}

// A copy of everything that can be read is no card: the key stays in it.
TEST(OfflineAuthentication, TellsACopiedCard) {
    Profile copy = profile("debit");
    copy.applications.front().icc_key->private_exponent.back() ^= 0x02U;
    EXPECT_EQ(judged(copy), (Judgement{true, false}));
    copy.applications.front().icc_key.reset();
    EXPECT_EQ(judged(copy), (Judgement{true, false}));
}

class DynamicData : public testing::Test {
  protected:
    Card card{profile("debit")};
    OfflineTerminal terminal{card, debit_aid};
};

TEST_F(DynamicData, IsSignedForOneMomentOnly) {
    const Reply first = terminal.sign("1A2B3C4D");
    EXPECT_TRUE(terminal.dynamic_data_authentic(first, "1A2B3C4D"));
    EXPECT_FALSE(terminal.dynamic_data_authentic(first, "1A2B3C4E"));
    EXPECT_NE(terminal.sign("1A2B3C4D"), first) << "a number of the card is in it";
}

TEST_F(DynamicData, IsSignedBetweenProcessingOptionsAndTheFirstCryptogram) {
    terminal.counter().select(debit_aid);
    EXPECT_EQ(terminal.sign("1A2B3C4D"), refused("6985"));
    terminal.counter().begin(debit_aid);
    EXPECT_EQ(terminal.sign("1A2B3C4D").data.substr(0, 4), "8060");
    EXPECT_EQ(terminal.counter().send("0088000003 1A2B3C"), refused("6700"));
    EXPECT_EQ(terminal.counter().send("0088010004 1A2B3C4D"), refused("6A86"));
    EXPECT_EQ(terminal.counter().send("0088000000"), refused("6700"));
    terminal.counter().first_cryptogram();
    EXPECT_EQ(terminal.sign("1A2B3C4D"), refused("6985"));
}

TEST_F(DynamicData, IsTheIssuersBusinessToo) {
    const auto said = [](CounterTerminal& counter) {
        const auto field =
            virtual_issuer::Field55::parse(counter.field55(counter.first_cryptogram()));
        const auto verdict =
            issuer_of("debit").verify(field, virtual_issuer::CryptogramKind::kRequest);
        EXPECT_TRUE(verdict.verified);
        const auto phrases = virtual_issuer::describe(verdict.comparison.value().cvr);
        return std::ranges::find(phrases, "dynamic data signed by the card") != phrases.end();
    };
    terminal.counter().begin(debit_aid);
    EXPECT_FALSE(said(terminal.counter()));
    terminal.counter().begin(debit_aid);
    terminal.sign("1A2B3C4D");
    EXPECT_TRUE(said(terminal.counter()));
}

TEST_F(DynamicData, ComesInTheWayOfTheCard) {
    Profile constructed = profile("debit");
    constructed.applications.front().generate_ac_format =
        virtual_card::ResponseFormat::kConstructed;
    Card other(constructed);
    OfflineTerminal at_other(other, debit_aid);
    const Reply reply = at_other.sign("1A2B3C4D");
    EXPECT_EQ(reply.data.substr(0, 10), "77639F4B60");
    EXPECT_TRUE(at_other.dynamic_data_authentic(reply, "1A2B3C4D"));

    Card waiting(profile("get-response"));
    CounterTerminal counter(waiting);
    counter.select(debit_aid);
    counter.send("80A800000B 8309 01 000000001213 0156");
    EXPECT_EQ(counter.send("0088000004 1A2B3C4D"), refused("6162"));
    EXPECT_EQ(counter.send("00C0000062").data.substr(0, 4), "8060");
}

TEST(CardholderVerification, FallsBackToWhatTheTerminalCan) {
    constexpr std::uint8_t plaintext_pin = 0x01;
    constexpr std::uint8_t online_pin = 0x02;
    const std::string wrong = "26111111FFFFFFFF";
    Card card(profile("debit"));
    OfflineTerminal terminal(card, debit_aid);
    EXPECT_TRUE(terminal.cardholder_verified({}, wrong));
    EXPECT_TRUE(terminal.cardholder_verified({plaintext_pin, online_pin}, wrong));
    EXPECT_EQ(terminal.counter().send("80CA9F1700"), accepted("9F170102"));
}

} // namespace
} // namespace qaven::card_test
