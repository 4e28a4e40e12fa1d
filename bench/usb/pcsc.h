// The same card through pcscd and its CCID driver. Neither is needed for building: the client
// library is loaded when it is asked for.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace qaven::bench {

// pcscd, as long as this lives. It claims every slot of the reader.
class Pcscd {
  public:
    Pcscd();
    Pcscd(const Pcscd&) = delete;
    Pcscd& operator=(const Pcscd&) = delete;
    Pcscd(Pcscd&&) = delete;
    Pcscd& operator=(Pcscd&&) = delete;
    ~Pcscd();

  private:
    pid_t process_;
};

// A program at pcscd. Everything throws when it fails.
class PcscHost {
  public:
    // Waits until pcscd has found the reader with the card.
    PcscHost();
    PcscHost(const PcscHost&) = delete;
    PcscHost& operator=(const PcscHost&) = delete;
    PcscHost(PcscHost&&) = delete;
    PcscHost& operator=(PcscHost&&) = delete;
    ~PcscHost();

    void connect();
    void status() const;

    // Without power, as the library leaves a card.
    void disconnect() const;

    // Returns the response with its status word.
    std::span<const std::uint8_t> transmit(std::span<const std::uint8_t> command);

  private:
    long try_to_connect(const std::string& reader);
    [[nodiscard]] std::vector<std::string> readers() const;

    long context_ = 0;
    long card_ = 0;
    std::string reader_;
    std::vector<std::uint8_t> response_;
};

} // namespace qaven::bench
