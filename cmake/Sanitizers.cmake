# QUIBLY_SANITIZE builds everything, tests included, with ASan and UBSan, so that
# one configure switch gives the checked build CI runs. QUIBLY_FUZZ adds libFuzzer's
# coverage instrumentation to every object so the fuzz targets see into the library.
if(QUIBLY_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer
                      -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
endif()

if(QUIBLY_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "QUIBLY_FUZZ needs clang: libFuzzer ships with it")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
