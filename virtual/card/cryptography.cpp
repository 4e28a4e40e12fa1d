// The cryptography that card and issuer share, on OpenSSL's block ciphers.
#include "virtual/card/cryptography.h"

#include <algorithm>
#include <memory>
#include <stdexcept>

#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

namespace qaven::virtual_card {

namespace {

constexpr std::size_t kDesBlock = 8;
constexpr std::size_t kSm4Block = 16;

using EightBytes = std::array<std::uint8_t, 8>;

std::size_t block_size(Algorithm algorithm) {
    return algorithm == Algorithm::kSm4 ? kSm4Block : kDesBlock;
}

enum class Direction : std::uint8_t { kDecipher, kEncipher };

// Enciphers or deciphers whole blocks, each on its own.
Bytes run_cipher(const EVP_CIPHER* cipher, ByteView key, ByteView blocks, Direction direction) {
    const std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> context(
        EVP_CIPHER_CTX_new(), &EVP_CIPHER_CTX_free);
    Bytes result(blocks.size() + kSm4Block);
    int written = 0;
    if (!context ||
        EVP_CipherInit_ex(context.get(), cipher, nullptr, key.data(), nullptr,
                          direction == Direction::kEncipher ? 1 : 0) != 1 ||
        EVP_CIPHER_CTX_set_padding(context.get(), 0) != 1 ||
        EVP_CipherUpdate(context.get(), result.data(), &written, blocks.data(),
                         static_cast<int>(blocks.size())) != 1 ||
        static_cast<std::size_t>(written) != blocks.size()) {
        throw std::runtime_error("The block cipher could not be run.");
    }
    result.resize(blocks.size());
    return result;
}

Bytes triple_des(const Key& key, ByteView blocks, Direction direction) {
    std::array<std::uint8_t, 24> three_keys{};
    std::copy(key.begin(), key.end(), three_keys.begin());
    std::copy_n(key.begin(), kDesBlock, three_keys.begin() + 16);
    return run_cipher(EVP_des_ede3_ecb(), three_keys, blocks, direction);
}

// Single DES as 3DES with three equal keys: OpenSSL keeps the single cipher out of its default set.
Bytes single_des(ByteView key, ByteView blocks, Direction direction) {
    const Bytes three_keys = concatenate({key, key, key});
    return run_cipher(EVP_des_ede3_ecb(), three_keys, blocks, direction);
}

Bytes block_cipher(Algorithm algorithm, const Key& key, ByteView blocks,
                   Direction direction = Direction::kEncipher) {
    return algorithm == Algorithm::kSm4 ? run_cipher(EVP_sm4_ecb(), key, blocks, direction)
                                        : triple_des(key, blocks, direction);
}

Key as_key(const Bytes& bytes) {
    Key key{};
    std::copy_n(bytes.begin(), key.size(), key.begin());
    return key;
}

Cryptogram leftmost(const Bytes& bytes) {
    Cryptogram left{};
    std::copy_n(bytes.begin(), left.size(), left.begin());
    return left;
}

Bytes complement(ByteView bytes) {
    Bytes inverted(bytes.begin(), bytes.end());
    for (std::uint8_t& byte : inverted) {
        byte = static_cast<std::uint8_t>(~byte);
    }
    return inverted;
}

Bytes pad_to_blocks(ByteView data, std::size_t block) {
    Bytes padded(data.begin(), data.end());
    padded.push_back(0x80);
    padded.resize((padded.size() + block - 1) / block * block, 0x00);
    return padded;
}

void xor_into(Bytes& target, ByteView other) {
    for (std::size_t at = 0; at < target.size(); ++at) {
        target[at] ^= other[at];
    }
}

EightBytes diversification_data(std::string_view pan_digits, std::uint8_t pan_sequence_number) {
    constexpr std::size_t kDigitCount = 16;
    std::string digits = std::string(pan_digits) + to_hex(Bytes{pan_sequence_number});
    if (digits.size() < kDigitCount) {
        digits.insert(0, kDigitCount - digits.size(), '0');
    }
    const auto bytes = from_hex(std::string_view(digits).substr(digits.size() - kDigitCount));
    if (!bytes) {
        throw std::runtime_error("A card key needs a PAN and a sequence number of digits.");
    }
    return leftmost(*bytes);
}

} // namespace

Key derive_card_key(Algorithm algorithm, const Key& issuer_key, std::string_view pan_digits,
                    std::uint8_t pan_sequence_number) {
    const EightBytes left = diversification_data(pan_digits, pan_sequence_number);
    const Bytes right = complement(left);
    return as_key(block_cipher(algorithm, issuer_key, concatenate({left, right})));
}

Key derive_session_key(Algorithm algorithm, const Key& card_key, std::uint16_t atc) {
    const auto high = static_cast<std::uint8_t>(atc >> 8U);
    const auto low = static_cast<std::uint8_t>(atc);
    const Bytes left = {0, 0, 0, 0, 0, 0, high, low};
    const Bytes right = {
        0, 0, 0, 0, 0, 0, static_cast<std::uint8_t>(~high), static_cast<std::uint8_t>(~low)};
    return as_key(block_cipher(algorithm, card_key, concatenate({left, right})));
}

Cryptogram compute_mac(Algorithm algorithm, const Key& session_key, ByteView data) {
    const std::size_t block = block_size(algorithm);
    const Bytes padded = pad_to_blocks(data, block);
    const ByteView left_key = ByteView(session_key).first(kDesBlock);
    const ByteView right_key = ByteView(session_key).subspan(kDesBlock);
    Bytes chain(block, 0x00);
    for (std::size_t at = 0; at < padded.size(); at += block) {
        xor_into(chain, ByteView(padded).subspan(at, block));
        chain = algorithm == Algorithm::kSm4 ? block_cipher(algorithm, session_key, chain)
                                             : single_des(left_key, chain, Direction::kEncipher);
    }
    if (algorithm == Algorithm::kTripleDes) {
        chain = single_des(right_key, chain, Direction::kDecipher);
        chain = single_des(left_key, chain, Direction::kEncipher);
    }
    return leftmost(chain);
}

Cryptogram compute_arpc(Algorithm algorithm, const Key& session_key, const Cryptogram& arqc,
                        const Arc& arc) {
    Bytes input(arqc.begin(), arqc.end());
    input[0] ^= arc[0];
    input[1] ^= arc[1];
    input.resize(block_size(algorithm), 0x00);
    return leftmost(block_cipher(algorithm, session_key, input));
}

Bytes compute_script_mac(Algorithm algorithm, const Key& mac_session_key, ByteView header,
                         std::uint16_t atc, const Cryptogram& first_cryptogram,
                         ByteView command_data) {
    const Cryptogram mac =
        compute_mac(algorithm, mac_session_key,
                    concatenate({header, big_endian(atc), first_cryptogram, command_data}));
    return {mac.begin(), mac.begin() + kScriptMacSize};
}

Bytes encipher_pin_block(Algorithm algorithm, const Key& encryption_session_key,
                         const Cryptogram& pin_block) {
    const Bytes length = {static_cast<std::uint8_t>(pin_block.size())};
    const Bytes plain = pad_to_blocks(concatenate({length, pin_block}), kSm4Block);
    return block_cipher(algorithm, encryption_session_key, plain);
}

std::optional<Cryptogram> decipher_pin_block(Algorithm algorithm, const Key& encryption_session_key,
                                             ByteView enciphered) {
    if (enciphered.size() != kSm4Block) {
        return std::nullopt;
    }
    const Bytes plain =
        block_cipher(algorithm, encryption_session_key, enciphered, Direction::kDecipher);
    Cryptogram block{};
    std::copy_n(plain.begin() + 1, block.size(), block.begin());
    if (encipher_pin_block(algorithm, encryption_session_key, block) !=
        Bytes(enciphered.begin(), enciphered.end())) {
        return std::nullopt;
    }
    return block;
}

Cryptogram make_pin_block(std::string_view digits) {
    std::string text = "2" + std::string(1, "0123456789ABCDEF"[digits.size() & 0x0FU]);
    text += digits;
    text.resize(sizeof(Cryptogram) * 2, 'F');
    const auto bytes = from_hex(text);
    if (!bytes) {
        throw std::runtime_error("A PIN has digits only.");
    }
    return leftmost(*bytes);
}

std::optional<std::string> read_pin_block(const Cryptogram& block) {
    constexpr std::size_t kShortestPin = 4;
    constexpr std::size_t kLongestPin = 12;
    const std::string text = to_hex(block);
    const std::size_t length = block[0] & 0x0FU;
    if ((block[0] >> 4U) != 2 || length < kShortestPin || length > kLongestPin) {
        return std::nullopt;
    }
    const std::string digits = text.substr(2, length);
    const bool only_digits = digits.find_first_not_of("0123456789") == std::string::npos;
    const bool filled = text.find_first_not_of('F', 2 + length) == std::string::npos;
    return only_digits && filled ? std::optional(digits) : std::nullopt;
}

Bytes apply_rsa(ByteView modulus, ByteView exponent, ByteView block) {
    using Number = std::unique_ptr<BIGNUM, decltype(&BN_free)>;
    const auto number = [](ByteView bytes) {
        return Number(BN_bin2bn(bytes.data(), static_cast<int>(bytes.size()), nullptr), &BN_free);
    };
    const std::unique_ptr<BN_CTX, decltype(&BN_CTX_free)> context(BN_CTX_new(), &BN_CTX_free);
    const Number result(BN_new(), &BN_free);
    const Number base = number(block);
    const Number power = number(exponent);
    const Number ring = number(modulus);
    Bytes bytes(modulus.size());
    if (!context || !result || !base || !power || !ring ||
        BN_mod_exp(result.get(), base.get(), power.get(), ring.get(), context.get()) != 1 ||
        BN_bn2binpad(result.get(), bytes.data(), static_cast<int>(bytes.size())) < 0) {
        throw std::runtime_error("The card's RSA key cannot be used.");
    }
    return bytes;
}

Hash hash_sha1(ByteView data) {
    Hash hash{};
    if (EVP_Digest(data.data(), data.size(), hash.data(), nullptr, EVP_sha1(), nullptr) != 1) {
        throw std::runtime_error("SHA-1 could not be run.");
    }
    return hash;
}

Bytes random_bytes(std::size_t count) {
    Bytes bytes(count);
    if (RAND_bytes(bytes.data(), static_cast<int>(count)) != 1) {
        throw std::runtime_error("No random numbers are available.");
    }
    return bytes;
}

} // namespace qaven::virtual_card
