# The one place warning flags live. Every target of ours calls quibly_warnings();
# third-party code is included as SYSTEM and never sees these flags.
function(quibly_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Werror -Wshadow -Wnon-virtual-dtor)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # g++ 12 reports false positives deep inside libstdc++ at -O2 (PR 105651 and kin).
    target_compile_options(${target} PRIVATE -Wno-restrict -Wno-maybe-uninitialized)
  endif()
endfunction()
