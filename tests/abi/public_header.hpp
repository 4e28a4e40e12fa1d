// A host of two headers that both include the C++ one, beside the C one. Compiled in each standard;
// never run.
#include "qaven/qaven.hpp"

#include "qaven/qaven.h"

#include "qaven/qaven.hpp"

int main() {
    qaven::Library library;
    return library.read_card({"|A", ""}).code;
}
