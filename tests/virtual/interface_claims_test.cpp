// Who gets an interface, and who has to wait.
#include "virtual/plug/interface_claims.h"

#include <gtest/gtest.h>

#include <cerrno>

using qaven::virtual_plug::InterfaceClaims;

namespace {

class Claims : public testing::Test {
  protected:
    Claims() {
        claims.add_interface(1);
        claims.add_interface(2);
    }
    InterfaceClaims claims;
};

TEST_F(Claims, AFreeInterfaceGoesToTheFirstWhoAsks) {
    EXPECT_EQ(claims.claim(1, 2), 0);
    EXPECT_EQ(claims.claim(2, 2), -EBUSY);
    EXPECT_EQ(claims.claim(2, 1), 0);
    EXPECT_EQ(claims.driver(2), "usbfs");
    EXPECT_EQ(claims.holder(2), 1U);
    EXPECT_EQ(claims.holder(1), 2U);
}

TEST_F(Claims, ADriverIsNoClient) {
    claims.bind(2, "some_driver");
    EXPECT_FALSE(claims.holder(2));
    EXPECT_FALSE(claims.holder(7));
}

TEST_F(Claims, TheHolderMayAskAgain) {
    EXPECT_EQ(claims.claim(1, 2), 0);
    EXPECT_EQ(claims.claim(1, 2), 0);
}

TEST_F(Claims, AnInterfaceThatIsNotThereIsNotFound) {
    EXPECT_EQ(claims.claim(1, 7), -ENOENT);
    EXPECT_EQ(claims.release(1, 7), -ENOENT);
    EXPECT_EQ(claims.disconnect_driver(7), -EINVAL);
    EXPECT_EQ(claims.connect_driver(7), -EINVAL);
    EXPECT_FALSE(claims.driver(7));
}

TEST_F(Claims, OnlyTheHolderReleases) {
    claims.claim(1, 2);
    EXPECT_EQ(claims.release(2, 2), -EINVAL);
    EXPECT_EQ(claims.release(1, 2), 0);
    EXPECT_EQ(claims.release(1, 2), -EINVAL);
    EXPECT_EQ(claims.claim(2, 2), 0);
}

TEST_F(Claims, AKernelDriverHasToLeaveFirst) {
    claims.bind(2, "some_driver");
    EXPECT_EQ(claims.driver(2), "some_driver");
    EXPECT_EQ(claims.claim(1, 2), -EBUSY);
    EXPECT_EQ(claims.disconnect_driver(2), 0);
    EXPECT_EQ(claims.claim(1, 2), 0);
}

TEST_F(Claims, ADriverComesBackWhenLetIn) {
    claims.bind(2, "some_driver");
    claims.disconnect_driver(2);
    EXPECT_EQ(claims.disconnect_driver(2), -ENODATA);
    claims.claim(1, 2);
    EXPECT_EQ(claims.connect_driver(2), -EBUSY);
    claims.release(1, 2);
    EXPECT_EQ(claims.connect_driver(2), 1);
    EXPECT_EQ(claims.driver(2), "some_driver");
}

TEST_F(Claims, NoDriverComesWhereNoneWas) {
    EXPECT_EQ(claims.connect_driver(1), 0);
}

TEST_F(Claims, AClosedFileHoldsNothing) {
    claims.claim(1, 1);
    claims.claim(1, 2);
    EXPECT_TRUE(claims.any_claimed());
    claims.forget(1);
    EXPECT_FALSE(claims.any_claimed());
    EXPECT_EQ(claims.claim(2, 2), 0);
}

} // namespace
