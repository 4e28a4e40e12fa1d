// Marks what leaves the library: everything else stays hidden inside libqaven.so.
#pragma once

#define QAVEN_API __attribute__((visibility("default")))
