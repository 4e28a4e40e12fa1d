// qaven-virtual-reader: the launcher with the virtual cards and the identity-card reader.
#include "virtual/card/card_factory.h"
#include "virtual/idcard/idcard_device.h"
#include "virtual/plug/launcher.h"

#include <openssl/crypto.h>

int main(int argc, char** argv) {
    // The cards compute on a thread of the mocked bus that ends after the exit handlers have run;
    // OpenSSL's own exit handler would take the state away under it.
    OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
    return qaven::virtual_plug::launch(argc, argv,
                                       {.card = qaven::virtual_card::make_card,
                                        .save = qaven::virtual_card::save_card,
                                        .idcard = qaven::virtual_idcard::make_idcard_reader});
}
