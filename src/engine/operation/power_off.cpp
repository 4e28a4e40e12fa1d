// A host's request to end a card session. The operations power the card off themselves where they
// need to, so the request has nothing left to do.
#include "engine/operation/power_off.h"

#include "engine/card/commands.h"

int ZEB_ICC_PowerOff(char* /*p1*/, char* /*p2*/, char* /*p3*/, char* /*p4*/, char* /*p5*/,
                     char* /*p6*/, char* /*p7*/, char* /*p8*/, char* /*p9*/, char* /*p10*/) {
    qm_closeicc();
    Qm_CloseDevice();
    return 0;
}
