// A host program on a machine with the virtual reader: nothing here knows that the bus is not real.
// Each suite runs under the launcher with the options that its name stands for.
#include "hex.h"

#include <gtest/gtest.h>
#include <libusb-1.0/libusb.h>

#include <fcntl.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <ctime>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <thread>

using namespace virtual_test;

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::uint16_t vendor = 0x2F7A;
constexpr std::uint16_t product = 0x4417;
constexpr int kSlot1 = 1;
constexpr int kSlot2 = 2;
constexpr unsigned char slot_2_out = 0x04;
constexpr unsigned char slot_2_in = 0x84;

Bytes power_on() {
    return hex("62 00 00 00 00 00 00 00 00 00");
}
Bytes slot_status() {
    return hex("65 00 00 00 00 00 01 00 00 00");
}
Bytes select_nothing() {
    return hex("6F 05 00 00 00 00 02 00 00 00 00 A4 04 00 00");
}

class Host : public testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(libusb_init(nullptr), 0); }
    void TearDown() override {
        close();
        libusb_exit(nullptr);
    }

    bool open(std::uint16_t pid = product) {
        handle_ = libusb_open_device_with_vid_pid(nullptr, vendor, pid);
        return handle_ != nullptr;
    }
    void close() {
        if (handle_ != nullptr) {
            libusb_close(handle_);
            handle_ = nullptr;
        }
    }
    void open_slot(int interface = kSlot2) {
        ASSERT_TRUE(open());
        ASSERT_EQ(libusb_claim_interface(handle_, interface), 0);
    }

    int send(const Bytes& data, unsigned char endpoint = slot_2_out) {
        Bytes copy = data;
        int moved = 0;
        const int result = libusb_bulk_transfer(handle_, endpoint, copy.data(),
                                                static_cast<int>(copy.size()), &moved, 2000);
        if (result == 0) {
            EXPECT_EQ(moved, static_cast<int>(copy.size()));
        }
        return result;
    }

    // The packet, or the error's name.
    std::string receive(unsigned timeout_ms = 2000, unsigned char endpoint = slot_2_in) {
        std::array<unsigned char, 64> packet{};
        int moved = 0;
        const int result = libusb_bulk_transfer(handle_, endpoint, packet.data(), packet.size(),
                                                &moved, timeout_ms);
        return result == 0 ? show(std::span(packet).first(static_cast<std::size_t>(moved)))
                           : libusb_error_name(result);
    }

    std::string answer_to(const Bytes& message) {
        const int result = send(message);
        return result == 0 ? receive() : libusb_error_name(result);
    }

    // How many devices with this product the bus shows.
    static int readers_on_bus(std::uint16_t pid = product) {
        libusb_device** list = nullptr;
        const auto count = libusb_get_device_list(nullptr, &list);
        int found = 0;
        for (auto* const device : std::span(list, static_cast<std::size_t>(count))) {
            libusb_device_descriptor descriptor{};
            libusb_get_device_descriptor(device, &descriptor);
            found += descriptor.idVendor == vendor && descriptor.idProduct == pid ? 1 : 0;
        }
        libusb_free_device_list(list, 1);
        return found;
    }

    libusb_device_handle* handle_ = nullptr;
};

class Default : public Host {};

TEST_F(Default, TheReaderIsOnTheBusOnce) {
    EXPECT_EQ(readers_on_bus(), 1);
}

TEST_F(Default, ItsConfigurationHasTwoCcidInterfacesWithBulkOutFirst) {
    ASSERT_TRUE(open());
    libusb_config_descriptor* configuration = nullptr;
    ASSERT_EQ(libusb_get_config_descriptor(libusb_get_device(handle_), 0, &configuration), 0);
    ASSERT_EQ(configuration->bNumInterfaces, 3);
    for (const auto& interface : std::span(configuration->interface, 3).subspan(1)) {
        const libusb_interface_descriptor& setting = *interface.altsetting;
        EXPECT_EQ(setting.bInterfaceClass, LIBUSB_CLASS_SMART_CARD);
        EXPECT_EQ(setting.extra_length, 54);
        ASSERT_EQ(setting.bNumEndpoints, 3);
        const std::span endpoints(setting.endpoint, setting.bNumEndpoints);
        EXPECT_EQ(endpoints[0].bEndpointAddress, 2 * setting.bInterfaceNumber);
        EXPECT_EQ(endpoints[1].bEndpointAddress, 0x80 + 2 * setting.bInterfaceNumber);
        EXPECT_EQ(endpoints[0].wMaxPacketSize, 64);
    }
    libusb_free_config_descriptor(configuration);
    EXPECT_EQ(libusb_get_device_speed(libusb_get_device(handle_)), LIBUSB_SPEED_FULL);
}

TEST_F(Default, TheCardInSlotTwoIsPoweredAndAnswers) {
    open_slot();
    EXPECT_EQ(libusb_kernel_driver_active(handle_, kSlot2), 0);
    EXPECT_EQ(answer_to(power_on()),
              "80 0B 00 00 00 00 00 00 00 00 3B 67 00 00 51 41 56 45 4E 30 31");
    EXPECT_EQ(answer_to(slot_status()), "81 00 00 00 00 00 01 00 00 00");
    EXPECT_EQ(answer_to(select_nothing()), "80 07 00 00 00 00 02 00 00 00 00 A4 04 00 00 90 00");
}

std::string in_sysfs(const std::string& file) {
    std::ifstream in("/sys/bus/usb/devices/" + file);
    return {std::istreambuf_iterator<char>(in), {}};
}

// What programs read that look for interfaces, as pcscd and `lsusb -t` do.
TEST_F(Default, ItsInterfacesHaveFoldersInSysfs) {
    EXPECT_EQ(in_sysfs("1-1/bNumInterfaces"), " 3\n");
    EXPECT_EQ(in_sysfs("1-1/product"), "Virtual Card Reader\n");
    EXPECT_EQ(in_sysfs("1-1:1.0/bInterfaceClass"), "03\n");
    EXPECT_EQ(in_sysfs("1-1:1.2/bInterfaceClass"), "0b\n");
    EXPECT_EQ(in_sysfs("1-1:1.2/bInterfaceNumber"), "02\n");
    EXPECT_EQ(in_sysfs("1-1:1.2/bNumEndpoints"), "03\n");
    EXPECT_EQ(in_sysfs("1-1:1.2/modalias"), "usb:v2F7Ap4417d0100dc00dsc00dp00ic0Bisc00ip00in02\n");
    EXPECT_EQ(in_sysfs("1-0:1.0/bInterfaceClass"), "09\n");
}

TEST_F(Default, ASetConfigurationLeavesNoReply) {
    open_slot();
    answer_to(power_on());
    ASSERT_EQ(send(slot_status()), 0);
    EXPECT_EQ(libusb_set_configuration(handle_, 1), LIBUSB_ERROR_BUSY);
    ASSERT_EQ(libusb_release_interface(handle_, kSlot2), 0);
    EXPECT_EQ(libusb_set_configuration(handle_, 7), LIBUSB_ERROR_NOT_FOUND);
    EXPECT_EQ(libusb_set_configuration(handle_, 1), 0);
    ASSERT_EQ(libusb_claim_interface(handle_, kSlot2), 0);
    EXPECT_EQ(answer_to(hex("65 00 00 00 00 00 02 00 00 00")), "81 00 00 00 00 00 02 01 00 01");
}

TEST_F(Default, SlotOneIsEmpty) {
    open_slot(kSlot1);
    EXPECT_EQ(send(slot_status(), 0x02), 0);
    EXPECT_EQ(receive(2000, 0x82), "81 00 00 00 00 00 01 02 00 01");
}

TEST_F(Default, ALongAnswerComesPacketByPacket) {
    open_slot();
    answer_to(power_on());
    ASSERT_EQ(send(hex("6F 05 00 00 00 00 01 00 00 00 00 C0 00 00 74")), 0);
    EXPECT_EQ(receive(), show(hex("80 76 00 00 00 00 01 00 00 00") + counting(54)));
    EXPECT_EQ(receive(), show(counting(62, 55) + hex("90 00")));
    EXPECT_EQ(receive(), "") << "an empty packet ends it";
    EXPECT_EQ(receive(50), "LIBUSB_ERROR_TIMEOUT");
}

TEST_F(Default, AReadLargerThanAPacketEndsWithTheShortOne) {
    open_slot();
    answer_to(power_on());
    ASSERT_EQ(send(hex("6F 05 00 00 00 00 01 00 00 00 00 C0 00 00 FF")), 0);
    std::array<unsigned char, 512> whole{};
    int moved = 0;
    EXPECT_EQ(libusb_bulk_transfer(handle_, slot_2_in, whole.data(), whole.size(), &moved, 2000),
              0);
    EXPECT_EQ(moved, 10 + 255 + 2);
}

TEST_F(Default, AReadSmallerThanThePacketOverflows) {
    open_slot();
    ASSERT_EQ(send(slot_status()), 0);
    std::array<unsigned char, 4> little{};
    int moved = 0;
    EXPECT_EQ(libusb_bulk_transfer(handle_, slot_2_in, little.data(), little.size(), &moved, 2000),
              LIBUSB_ERROR_OVERFLOW);
}

TEST_F(Default, AnUnansweredReadEndsInTimeWithoutBurningTheProcessor) {
    open_slot();
    answer_to(power_on());
    const auto cpu_before = std::clock();
    const auto before = Clock::now();
    EXPECT_EQ(receive(600), "LIBUSB_ERROR_TIMEOUT");
    const auto took = Clock::now() - before;
    const double cpu = static_cast<double>(std::clock() - cpu_before) / CLOCKS_PER_SEC;
    EXPECT_GE(took, milliseconds(600));
    EXPECT_LT(took, milliseconds(2000));
    EXPECT_LT(cpu, 0.15);
    EXPECT_EQ(answer_to(slot_status()), "81 00 00 00 00 00 01 00 00 00")
        << "and the next one works";
}

TEST_F(Default, AReadThatWaitsGetsTheAnswerOfALaterCommand) {
    open_slot();
    answer_to(power_on());
    std::string answer;
    std::thread reader([&] { answer = receive(); });
    std::this_thread::sleep_for(milliseconds(50));
    EXPECT_EQ(send(slot_status()), 0);
    reader.join();
    EXPECT_EQ(answer, "81 00 00 00 00 00 01 00 00 00");
}

TEST_F(Default, OpenedAgainAndAgainItStillAnswers) {
    for (int round = 0; round < 5; ++round) {
        open_slot();
        EXPECT_EQ(answer_to(power_on()).substr(0, 2), "80") << round;
        ASSERT_EQ(libusb_release_interface(handle_, kSlot2), 0);
        close();
        libusb_exit(nullptr);
        ASSERT_EQ(libusb_init(nullptr), 0);
    }
}

TEST_F(Default, AnInterfaceGoesToOneHandleAtATime) {
    open_slot();
    libusb_device_handle* const other = libusb_open_device_with_vid_pid(nullptr, vendor, product);
    ASSERT_NE(other, nullptr);
    EXPECT_EQ(libusb_claim_interface(other, kSlot2), LIBUSB_ERROR_BUSY);
    EXPECT_EQ(libusb_claim_interface(other, kSlot1), 0);
    close(); // without a release
    EXPECT_EQ(libusb_claim_interface(other, kSlot2), 0);
    libusb_close(other);
}

TEST_F(Default, AnInterfaceThatIsNotThereCannotBeClaimed) {
    ASSERT_TRUE(open());
    EXPECT_EQ(libusb_claim_interface(handle_, 5), LIBUSB_ERROR_NOT_FOUND);
    EXPECT_EQ(libusb_release_interface(handle_, kSlot2), LIBUSB_ERROR_NOT_FOUND);
}

TEST_F(Default, ControlTransfersReachTheReader) {
    ASSERT_TRUE(open());
    std::array<unsigned char, 64> text{};
    ASSERT_GT(libusb_get_string_descriptor_ascii(handle_, 2, text.data(), text.size()), 0);
    EXPECT_STREQ(reinterpret_cast<const char*>(text.data()), "Virtual Card Reader");
    EXPECT_EQ(libusb_control_transfer(handle_, 0xA1, 0x77, 0, kSlot1, text.data(), 4, 1000),
              LIBUSB_ERROR_PIPE);
}

TEST_F(Default, TheInterruptEndpointTellsOfTheCard) {
    open_slot();
    std::array<unsigned char, 8> news{};
    int moved = 0;
    ASSERT_EQ(libusb_interrupt_transfer(handle_, 0x85, news.data(), news.size(), &moved, 1000), 0);
    EXPECT_EQ(show(std::span(news).first(static_cast<std::size_t>(moved))), "50 03");
}

TEST_F(Default, AResetLeavesTheCardWithoutPower) {
    open_slot();
    answer_to(power_on());
    EXPECT_EQ(libusb_reset_device(handle_), 0);
    EXPECT_EQ(answer_to(slot_status()), "81 00 00 00 00 00 01 01 00 01");
}

class CardInSlotOne : public Host {};

TEST_F(CardInSlotOne, IsSeenInSlotOneOnly) {
    open_slot(kSlot1);
    ASSERT_EQ(libusb_claim_interface(handle_, kSlot2), 0);
    EXPECT_EQ(answer_to(slot_status()), "81 00 00 00 00 00 01 02 00 01");
    EXPECT_EQ(send(power_on(), 0x02), 0);
    EXPECT_EQ(receive(2000, 0x82),
              "80 0B 00 00 00 00 00 00 00 00 3B 67 00 00 51 41 56 45 4E 30 31");
}

class NoCard : public Host {};

TEST_F(NoCard, BothSlotsAreEmpty) {
    open_slot(kSlot1);
    ASSERT_EQ(libusb_claim_interface(handle_, kSlot2), 0);
    EXPECT_EQ(answer_to(slot_status()), "81 00 00 00 00 00 01 02 00 01");
    EXPECT_EQ(answer_to(power_on()), "80 00 00 00 00 00 00 42 FE 00");
    EXPECT_EQ(send(slot_status(), 0x02), 0);
    EXPECT_EQ(receive(2000, 0x82), "81 00 00 00 00 00 01 02 00 01");
}

class NoReader : public Host {};

TEST_F(NoReader, TheBusIsThereButTheReaderIsNot) {
    libusb_device** list = nullptr;
    EXPECT_EQ(libusb_get_device_list(nullptr, &list), 1) << "the root hub";
    libusb_free_device_list(list, 1);
    EXPECT_FALSE(open());
}

class DriverBound : public Host {};

TEST_F(DriverBound, ADriverHasToBeDetachedFirst) {
    ASSERT_TRUE(open());
    EXPECT_EQ(libusb_kernel_driver_active(handle_, kSlot2), 1);
    EXPECT_EQ(libusb_claim_interface(handle_, kSlot2), LIBUSB_ERROR_BUSY);
    EXPECT_EQ(libusb_detach_kernel_driver(handle_, kSlot2), 0);
    EXPECT_EQ(libusb_kernel_driver_active(handle_, kSlot2), 0);
    EXPECT_EQ(libusb_claim_interface(handle_, kSlot2), 0);
    EXPECT_EQ(answer_to(power_on()).substr(0, 2), "80");
    EXPECT_EQ(libusb_release_interface(handle_, kSlot2), 0);
    EXPECT_EQ(libusb_attach_kernel_driver(handle_, kSlot2), 0);
    EXPECT_EQ(libusb_kernel_driver_active(handle_, kSlot2), 1);
}

TEST_F(DriverBound, ADriverLeavesOfItselfIfTheHostWantsThat) {
    ASSERT_TRUE(open());
    ASSERT_EQ(libusb_set_auto_detach_kernel_driver(handle_, 1), 0);
    EXPECT_EQ(libusb_claim_interface(handle_, kSlot1), 0);
    EXPECT_EQ(libusb_release_interface(handle_, kSlot1), 0);
    EXPECT_EQ(libusb_kernel_driver_active(handle_, kSlot1), 1);
}

class Held : public Host {};

TEST_F(Held, AnotherProgramKeepsTheInterface) {
    ASSERT_TRUE(open());
    EXPECT_EQ(libusb_kernel_driver_active(handle_, kSlot2), 0);
    EXPECT_EQ(libusb_claim_interface(handle_, kSlot2), LIBUSB_ERROR_BUSY);
    EXPECT_EQ(libusb_claim_interface(handle_, kSlot1), LIBUSB_ERROR_BUSY);
    EXPECT_EQ(answer_to(slot_status()), "LIBUSB_ERROR_IO");
}

class Strict : public Host {};

TEST_F(Strict, AStrayPacketIsACommandNotSupported) {
    open_slot();
    EXPECT_EQ(answer_to(Bytes(54)), "81 00 00 00 00 00 00 41 00 00");
}

class SecondReader : public Host {};

TEST_F(SecondReader, TheReaderWithTheCardIsFoundFirst) {
    EXPECT_EQ(readers_on_bus(), 2);
    open_slot();
    EXPECT_EQ(answer_to(power_on()).substr(0, 2), "80");
    EXPECT_EQ(answer_to(slot_status()), "81 00 00 00 00 00 01 00 00 00");
}

class CardTakenOut : public Host {};

TEST_F(CardTakenOut, TheSecondCommandFindsNoCard) {
    open_slot();
    answer_to(power_on());
    EXPECT_EQ(answer_to(select_nothing()), "80 07 00 00 00 00 02 00 00 00 00 A4 04 00 00 90 00");
    EXPECT_EQ(answer_to(select_nothing()), "80 00 00 00 00 00 02 42 FE 00");
}

class SlowCard : public Host {};

TEST_F(SlowCard, AnAnswerTakesTheTimeOfItsBytes) {
    open_slot();
    answer_to(power_on());
    const auto before = Clock::now();
    EXPECT_EQ(answer_to(select_nothing()).substr(0, 2), "80");
    // Thirteen bytes of twelve bits at 1200 bit/s: 130 ms.
    EXPECT_GE(Clock::now() - before, milliseconds(130));
    EXPECT_LT(Clock::now() - before, milliseconds(600));
}

class QuickCard : public Host {};

// GET RESPONSE of 1 to 44 bytes: replies are due 0.1 to 0.6 ms after their commands, now before
// and now after the look at the clock that decides when to look again.
TEST_F(QuickCard, NoneOfManyRepliesIsForgotten) {
    open_slot();
    answer_to(power_on());
    Bytes get_response = hex("6F 05 00 00 00 00 02 00 00 00 00 C0 00 00 00");
    for (unsigned i = 0; i < 1000; ++i) {
        get_response.back() = static_cast<std::uint8_t>(1 + i % 44);
        ASSERT_EQ(answer_to(get_response).substr(0, 2), "80") << "reply " << i;
    }
}

// The launcher's tests run these two one after the other on one bus, with a card that takes 130 ms
// to answer.
class KilledHost : public Host {};

TEST_F(KilledHost, DiesWhileAReplyIsOnItsWay) {
    open_slot();
    answer_to(power_on());
    ASSERT_EQ(send(select_nothing()), 0);
    std::thread([this] { receive(); }).detach();
    std::this_thread::sleep_for(milliseconds(30));
    std::raise(SIGKILL);
}

class HostAfterwards : public Host {};

TEST_F(HostAfterwards, FindsTheReplyThatWasNotRead) {
    open_slot();
    EXPECT_EQ(answer_to(hex("65 00 00 00 00 00 09 00 00 00")),
              "80 07 00 00 00 00 02 00 00 00 00 A4 04 00 00 90 00");
    EXPECT_EQ(receive(), "81 00 00 00 00 00 09 00 00 00");
}

// Faults come after three good transfers: power on, its answer, one command.
class FaultyReader : public Host {
  protected:
    void SetUp() override {
        Host::SetUp();
        open_slot();
        ASSERT_EQ(answer_to(power_on()).substr(0, 2), "80");
        ASSERT_EQ(send(slot_status()), 0);
    }
    const std::string good = "81 00 00 00 00 00 01 00 00 00";
};

class FaultTimeout : public FaultyReader {};

TEST_F(FaultTimeout, OneReadGetsNothing) {
    EXPECT_EQ(receive(100), "LIBUSB_ERROR_TIMEOUT");
    EXPECT_EQ(receive(), good);
}

class CancelledRead : public FaultyReader {};

// The fault holds the first of two reads; the reply is for the second one when that is taken back.
TEST_F(CancelledRead, TheReadBehindItGetsTheReply) {
    std::array<unsigned char, 64> packet{};
    bool cancelled = false;
    const auto note_end = [](libusb_transfer* transfer) {
        *static_cast<bool*>(transfer->user_data) = transfer->status == LIBUSB_TRANSFER_CANCELLED;
    };
    libusb_transfer* const first = libusb_alloc_transfer(0);
    libusb_fill_bulk_transfer(first, handle_, slot_2_in, packet.data(), packet.size(), note_end,
                              &cancelled, 0);
    ASSERT_EQ(libusb_submit_transfer(first), 0);
    std::string answer;
    std::thread reader([&] { answer = receive(); });
    std::this_thread::sleep_for(milliseconds(100));
    EXPECT_EQ(libusb_cancel_transfer(first), 0);
    reader.join();
    EXPECT_EQ(answer, good);
    EXPECT_TRUE(cancelled);
    libusb_free_transfer(first);
}

class FaultStall : public FaultyReader {};

TEST_F(FaultStall, OneReadIsStalled) {
    EXPECT_EQ(receive(), "LIBUSB_ERROR_PIPE");
    EXPECT_EQ(receive(), good);
}

class FaultHalt : public FaultyReader {};

TEST_F(FaultHalt, ReadsAreStalledUntilTheHaltIsCleared) {
    EXPECT_EQ(receive(), "LIBUSB_ERROR_PIPE");
    EXPECT_EQ(receive(), "LIBUSB_ERROR_PIPE");
    EXPECT_EQ(libusb_clear_halt(handle_, slot_2_in), 0);
    EXPECT_EQ(answer_to(slot_status()), good);
}

class FaultOverflow : public FaultyReader {};

TEST_F(FaultOverflow, OneReadOverflows) {
    EXPECT_EQ(receive(), "LIBUSB_ERROR_OVERFLOW");
    EXPECT_EQ(answer_to(slot_status()), good);
}

class FaultShort : public FaultyReader {};

TEST_F(FaultShort, OneAnswerIsHalved) {
    EXPECT_EQ(receive(), "81 00 00 00 00");
    EXPECT_EQ(answer_to(slot_status()), good);
}

class FaultGarbage : public FaultyReader {};

TEST_F(FaultGarbage, OneAnswerIsNonsense) {
    const std::string answer = receive();
    EXPECT_EQ(answer.size(), good.size());
    EXPECT_NE(answer.substr(0, 2), "81");
    EXPECT_EQ(answer_to(slot_status()), good);
}

class FaultLate : public FaultyReader {};

TEST_F(FaultLate, OneAnswerTakesItsTime) {
    const auto before = Clock::now();
    EXPECT_EQ(receive(), good);
    EXPECT_GE(Clock::now() - before, milliseconds(150));
    EXPECT_LT(Clock::now() - before, milliseconds(1000));
}

class LateReply : public FaultyReader {};

TEST_F(LateReply, IsTheAnswerToTheNextCommandOfAHostThatGaveUp) {
    const auto before = Clock::now();
    EXPECT_EQ(receive(50), "LIBUSB_ERROR_TIMEOUT");
    EXPECT_EQ(answer_to(hex("65 00 00 00 00 00 02 00 00 00")), good);
    EXPECT_GE(Clock::now() - before, milliseconds(150)) << "giving up makes it come no sooner";
    EXPECT_EQ(receive(), "81 00 00 00 00 00 02 00 00 00");
}

class LateReplyAndReset : public FaultyReader {};

TEST_F(LateReplyAndReset, NothingOfItIsLeft) {
    EXPECT_EQ(receive(50), "LIBUSB_ERROR_TIMEOUT");
    EXPECT_EQ(libusb_reset_device(handle_), 0);
    EXPECT_EQ(answer_to(hex("65 00 00 00 00 00 02 00 00 00")), "81 00 00 00 00 00 02 01 00 01");
    std::uint8_t configuration = 0;
    EXPECT_EQ(libusb_control_transfer(handle_, LIBUSB_ENDPOINT_IN, LIBUSB_REQUEST_GET_CONFIGURATION,
                                      0, 0, &configuration, 1, 1000),
              1);
    EXPECT_EQ(configuration, 1);
}

// usbfs without libusb: the blocking form of reaping, which libusb never uses.
class BareUsbfs : public Host {
  protected:
    void SetUp() override {
        Host::SetUp();
        ASSERT_TRUE(open());
        const auto address = libusb_get_device_address(libusb_get_device(handle_));
        const std::string node = "/dev/bus/usb/001/00" + std::to_string(address);
        file_ = ::open(node.c_str(), O_RDWR);
        ASSERT_GE(file_, 0);
    }
    void TearDown() override {
        ::close(file_);
        Host::TearDown();
    }

    int submit(usbdevfs_urb* urb) const { return ioctl(file_, USBDEVFS_SUBMITURB, urb); }
    usbdevfs_urb* reap() const {
        void* urb = nullptr;
        return ioctl(file_, USBDEVFS_REAPURB, &urb) == 0 ? static_cast<usbdevfs_urb*>(urb)
                                                         : nullptr;
    }

    static std::unique_ptr<usbdevfs_urb> bulk(unsigned char endpoint, Bytes& buffer) {
        auto urb = std::make_unique<usbdevfs_urb>();
        urb->type = USBDEVFS_URB_TYPE_BULK;
        urb->endpoint = endpoint;
        urb->buffer = buffer.data();
        urb->buffer_length = static_cast<int>(buffer.size());
        return urb;
    }

    int file_ = -1;
};

TEST_F(BareUsbfs, ABlockingReapWaitsForALateAnswer) {
    Bytes question = slot_status();
    Bytes answer(64);
    const auto out = bulk(slot_2_out, question);
    const auto in = bulk(slot_2_in, answer);
    ASSERT_EQ(submit(out.get()), 0);
    EXPECT_EQ(reap(), out.get());
    ASSERT_EQ(submit(in.get()), 0);
    const auto before = Clock::now();
    EXPECT_EQ(reap(), in.get());
    EXPECT_GE(Clock::now() - before, milliseconds(140));
    EXPECT_EQ(in->status, 0);
    ASSERT_EQ(in->actual_length, 10);
    EXPECT_EQ(show(std::span(answer).first(10)), "81 00 00 00 00 00 01 01 00 01");
}

class FaultUnplug : public FaultyReader {};

TEST_F(FaultUnplug, TheReaderIsGoneForGood) {
    EXPECT_EQ(receive(), "LIBUSB_ERROR_NO_DEVICE");
    EXPECT_EQ(send(slot_status()), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(libusb_release_interface(handle_, kSlot2), LIBUSB_ERROR_NO_DEVICE);
    close();
    libusb_exit(nullptr);
    ASSERT_EQ(libusb_init(nullptr), 0);
    EXPECT_EQ(readers_on_bus(), 0);
    EXPECT_FALSE(open());
    EXPECT_EQ(in_sysfs("1-1:1.2/bInterfaceClass"), "");
}

class Replug : public FaultyReader {
  protected:
    void wait_for_reader() const {
        for (int i = 0; i < 200 && readers_on_bus() == 0; ++i) {
            std::this_thread::sleep_for(milliseconds(10));
            if (starts_anew_) {
                libusb_exit(nullptr);
                ASSERT_EQ(libusb_init(nullptr), 0);
            }
        }
        ASSERT_EQ(readers_on_bus(), 1);
    }
    bool starts_anew_ = true;
};

TEST_F(Replug, TheReaderComesBackUnderANewAddressAndWorks) {
    const auto address = libusb_get_device_address(libusb_get_device(handle_));
    EXPECT_EQ(receive(), "LIBUSB_ERROR_NO_DEVICE");
    close();
    libusb_exit(nullptr);
    ASSERT_EQ(libusb_init(nullptr), 0);
    EXPECT_EQ(readers_on_bus(), 0) << "right after the unplug";
    wait_for_reader();
    open_slot();
    EXPECT_NE(libusb_get_device_address(libusb_get_device(handle_)), address);
    EXPECT_EQ(answer_to(slot_status()), "81 00 00 00 00 00 01 01 00 01") << "without power again";
    EXPECT_EQ(answer_to(power_on()).substr(0, 2), "80");
}

class ReplugWhileRunning : public Replug {};

TEST_F(ReplugWhileRunning, ALibusbThatKeepsRunningSeesTheReaderGoAndCome) {
    starts_anew_ = false;
    EXPECT_EQ(receive(), "LIBUSB_ERROR_NO_DEVICE");
    close();
    int readers = 1;
    for (int i = 0; i < 20 && readers != 0; ++i) {
        readers = readers_on_bus();
        std::this_thread::sleep_for(milliseconds(5));
    }
    EXPECT_EQ(readers, 0);
    wait_for_reader();
    open_slot();
    EXPECT_EQ(answer_to(power_on()).substr(0, 2), "80");
}

class IdentityCardReader : public Host {};

TEST_F(IdentityCardReader, StandsBesideTheBankCardReader) {
    constexpr std::uint16_t idcard_product = 0x4463;
    EXPECT_EQ(readers_on_bus(), 1);
    EXPECT_EQ(readers_on_bus(idcard_product), 1);
    ASSERT_TRUE(open(idcard_product));
    ASSERT_EQ(libusb_claim_interface(handle_, 0), 0);
    std::array<unsigned char, 64> report{};
    EXPECT_EQ(libusb_control_transfer(handle_, 0xA1, 1, 0x0100, 0, report.data(), 64, 0), 64);
    EXPECT_EQ(show(report), show(Bytes(64))) << "nothing was asked, nothing is answered";
}

} // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    const int result = RUN_ALL_TESTS();
    if (testing::UnitTest::GetInstance()->test_to_run_count() == 0) {
        std::cerr << "no test of that name\n";
        return EXIT_FAILURE;
    }
    return result;
}
