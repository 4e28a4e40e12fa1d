// The data objects that the library and the virtual cards name, each by its tag and what it is (EMV
// Book 3, Annex A; the objects from 9F4D on, and those that begin with DF, as PBOC cards have
// them).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace qaven {

// A tag of one or two bytes, as card data have it.
class Tag {
  public:
    // No tag at all.
    constexpr Tag() = default;

    explicit constexpr Tag(unsigned int number)
        : bytes_{static_cast<unsigned char>(number > 0xFF ? number >> 8U : number),
                 static_cast<unsigned char>(number > 0xFF ? number : 0)},
          size_(number > 0xFF ? 2 : 1) {}

    constexpr std::span<const unsigned char> bytes() const {
        return std::span(bytes_).first(size_);
    }
    constexpr operator std::span<const unsigned char>() const { return bytes(); }
    constexpr std::size_t size() const { return size_; }

    // The number that the bytes make: 5A, 9F38.
    constexpr operator std::uint32_t() const {
        return size_ == 2 ? static_cast<std::uint32_t>(bytes_[0] << 8U | bytes_[1]) : bytes_[0];
    }

  private:
    std::array<unsigned char, 2> bytes_{};
    std::size_t size_ = 0;
};

inline constexpr Tag kTag4FAid{0x4F};
inline constexpr Tag kTag50ApplicationLabel{0x50};
inline constexpr Tag kTag57Track2{0x57};
inline constexpr Tag kTag5APan{0x5A};
inline constexpr Tag kTag5F20CardholderName{0x5F20};
inline constexpr Tag kTag5F24ExpirationDate{0x5F24};
inline constexpr Tag kTag5F2ACurrencyCode{0x5F2A};
inline constexpr Tag kTag5F34PanSequenceNumber{0x5F34};
inline constexpr Tag kTag61ApplicationTemplate{0x61};
inline constexpr Tag kTag6FFciTemplate{0x6F};
inline constexpr Tag kTag70RecordTemplate{0x70};
inline constexpr Tag kTag71IssuerScript1{0x71};
inline constexpr Tag kTag72IssuerScript2{0x72};
inline constexpr Tag kTag77ResponseFormat2{0x77};
inline constexpr Tag kTag80ResponseFormat1{0x80};
inline constexpr Tag kTag82Aip{0x82};
inline constexpr Tag kTag83CommandTemplate{0x83};
inline constexpr Tag kTag84DfName{0x84};
inline constexpr Tag kTag86IssuerScriptCommand{0x86};
inline constexpr Tag kTag87PriorityIndicator{0x87};
inline constexpr Tag kTag88Sfi{0x88};
inline constexpr Tag kTag8AArc{0x8A};
inline constexpr Tag kTag8CCdol1{0x8C};
inline constexpr Tag kTag8DCdol2{0x8D};
inline constexpr Tag kTag91IssuerAuthenticationData{0x91};
inline constexpr Tag kTag94Afl{0x94};
inline constexpr Tag kTag95Tvr{0x95};
inline constexpr Tag kTag9ATransactionDate{0x9A};
inline constexpr Tag kTag9CTransactionType{0x9C};
inline constexpr Tag kTag9DDdfName{0x9D};
inline constexpr Tag kTag9F02AmountAuthorised{0x9F02};
inline constexpr Tag kTag9F03AmountOther{0x9F03};
inline constexpr Tag kTag9F0BCardholderNameExtended{0x9F0B};
inline constexpr Tag kTag9F10Iad{0x9F10};
inline constexpr Tag kTag9F13LastOnlineAtc{0x9F13};
inline constexpr Tag kTag9F17PinTryCounter{0x9F17};
inline constexpr Tag kTag9F18IssuerScriptIdentifier{0x9F18};
inline constexpr Tag kTag9F1ATerminalCountryCode{0x9F1A};
inline constexpr Tag kTag9F1FTrack1DiscretionaryData{0x9F1F};
inline constexpr Tag kTag9F21TransactionTime{0x9F21};
inline constexpr Tag kTag9F26ApplicationCryptogram{0x9F26};
inline constexpr Tag kTag9F27Cid{0x9F27};
inline constexpr Tag kTag9F33TerminalCapabilities{0x9F33};
inline constexpr Tag kTag9F36Atc{0x9F36};
inline constexpr Tag kTag9F37UnpredictableNumber{0x9F37};
inline constexpr Tag kTag9F38Pdol{0x9F38};
inline constexpr Tag kTag9F49Ddol{0x9F49};
inline constexpr Tag kTag9F4BSignedDynamicData{0x9F4B};
inline constexpr Tag kTag9F4DLogEntry{0x9F4D};
inline constexpr Tag kTag9F4EMerchantName{0x9F4E};
inline constexpr Tag kTag9F4FLogFormat{0x9F4F};
inline constexpr Tag kTag9F51ApplicationCurrencyCode{0x9F51};
inline constexpr Tag kTag9F61CardholderIdNumber{0x9F61};
inline constexpr Tag kTag9F62CardholderIdType{0x9F62};
inline constexpr Tag kTag9F63CardProduct{0x9F63};
inline constexpr Tag kTag9F66TerminalTransactionQualifiers{0x9F66};
inline constexpr Tag kTag9F77CashBalanceLimit{0x9F77};
inline constexpr Tag kTag9F78CashTransactionLimit{0x9F78};
inline constexpr Tag kTag9F79CashBalance{0x9F79};
inline constexpr Tag kTag9F7AVlpSupport{0x9F7A};
inline constexpr Tag kTag9F7BVlpLimit{0x9F7B};
inline constexpr Tag kTagA5FciProprietaryTemplate{0xA5};
inline constexpr Tag kTagBF0CFciIssuerDiscretionaryData{0xBF0C};
inline constexpr Tag kTagDF20IssuerData{0xDF20};
inline constexpr Tag kTagDF21IssuerData{0xDF21};
inline constexpr Tag kTagDF22IssuerData{0xDF22};
inline constexpr Tag kTagDF23IssuerData{0xDF23};
inline constexpr Tag kTagDF4DLoadLogEntry{0xDF4D};
inline constexpr Tag kTagDF4FLoadLogFormat{0xDF4F};
inline constexpr Tag kTagDF69SmAlgorithm{0xDF69};

} // namespace qaven
