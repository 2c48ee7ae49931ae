# Every third-party library comes from a Debian package (scripts/deps.sh installs
# them). Each is wrapped in one quibly:: target so the rest of the build does not
# care how it was found.
find_package(Threads REQUIRED)
find_package(fmt REQUIRED)
find_package(CLI11 REQUIRED)
find_package(date REQUIRED)

# simdjson. Debian ships it only as a shared library, and loading that library
# drags libstdc++.so into the hook, which doubles its start-up time. When the
# unpacked Debian source is at hand we build its single-file amalgamation
# statically instead; otherwise we fall back to the shared library.
if(QUIBLY_SIMDJSON_SOURCE)
  set(_sj "${QUIBLY_SIMDJSON_SOURCE}/singleheader")
  if(NOT EXISTS "${_sj}/simdjson.cpp")
    message(FATAL_ERROR "No singleheader/simdjson.cpp under ${QUIBLY_SIMDJSON_SOURCE}")
  endif()
  add_library(quibly_simdjson STATIC "${_sj}/simdjson.cpp")
  target_include_directories(quibly_simdjson SYSTEM PUBLIC "${_sj}")
  target_compile_definitions(quibly_simdjson PUBLIC SIMDJSON_EXCEPTIONS=0)
  # The parser is the hot path of every JSON read; keep it optimised in every build.
  target_compile_options(quibly_simdjson PRIVATE -O2 -w)
  set_target_properties(quibly_simdjson PROPERTIES POSITION_INDEPENDENT_CODE ON)
  add_library(quibly::simdjson ALIAS quibly_simdjson)
else()
  find_package(simdjson REQUIRED)
  add_library(quibly_simdjson INTERFACE)
  target_link_libraries(quibly_simdjson INTERFACE simdjson::simdjson)
  target_compile_definitions(quibly_simdjson INTERFACE SIMDJSON_EXCEPTIONS=0)
  add_library(quibly::simdjson ALIAS quibly_simdjson)
endif()

# PCRE2, 8-bit code units. The static archive keeps the hook free of extra
# shared objects at start-up.
find_path(PCRE2_INCLUDE_DIR pcre2.h REQUIRED)
find_library(PCRE2_LIBRARY NAMES libpcre2-8.a pcre2-8 REQUIRED)
add_library(quibly_pcre2 INTERFACE)
target_include_directories(quibly_pcre2 SYSTEM INTERFACE "${PCRE2_INCLUDE_DIR}")
target_link_libraries(quibly_pcre2 INTERFACE "${PCRE2_LIBRARY}")
target_compile_definitions(quibly_pcre2 INTERFACE PCRE2_CODE_UNIT_WIDTH=8)
if(PCRE2_LIBRARY MATCHES "\\.a$")
  target_compile_definitions(quibly_pcre2 INTERFACE PCRE2_STATIC)
endif()
add_library(quibly::pcre2 ALIAS quibly_pcre2)

# fmt header-only: no libfmt.so to load, and format strings still checked at compile time.
add_library(quibly_fmt INTERFACE)
target_link_libraries(quibly_fmt INTERFACE fmt::fmt-header-only)
add_library(quibly::fmt ALIAS quibly_fmt)
