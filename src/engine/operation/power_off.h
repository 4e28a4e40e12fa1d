// A host's request to end a card session.
#pragma once

#include "support/export.h"

// Calls both close hooks; reader and card stay as they are. The ten texts are not used. Always 0.
QAVEN_API int ZEB_ICC_PowerOff(char* p1, char* p2, char* p3, char* p4, char* p5, char* p6, char* p7,
                               char* p8, char* p9, char* p10);
