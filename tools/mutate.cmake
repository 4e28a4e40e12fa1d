# Read by the builds of tools/mutate after project(): the library's objects are compiled one at a time and
# many times over, so they share the headers that most of them read, and carry no debug information.
cmake_language(DEFER CALL target_compile_options qaven_objects PRIVATE -g0)
cmake_language(DEFER CALL target_precompile_headers qaven_objects PRIVATE
  <algorithm> <array> <chrono> <cstdint> <cstdio> <cstdlib> <cstring> <memory> <optional> <span> <string>
  <string_view> <vector> <libusb.h> <cjson/cJSON.h>)
add_link_options(-fuse-ld=lld)
