# Warnings, pinned arithmetic and sanitizers, the same for every target of the project.

find_program(VNXSTD_CCACHE ccache)
if(VNXSTD_CCACHE AND PROJECT_IS_TOP_LEVEL AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${VNXSTD_CCACHE})
endif()

# Arithmetic that is pinned for users too, since headers compute inline. Fused into one operation, a*d - b*c of equal
# products is a rounding error instead of 0, and a singular matrix would be found to be none. The 80-bit registers of
# 32-bit x86 round twice.
set(VNXSTD_ARITHMETIC -ffp-contract=off)
if(CMAKE_SIZEOF_VOID_P EQUAL 4 AND CMAKE_SYSTEM_PROCESSOR MATCHES "^(i.86|x86|x86_64|AMD64)$")
  list(APPEND VNXSTD_ARITHMETIC -msse2 -mfpmath=sse)
endif()

# g++ does not align the stack of 64-bit Windows for wide vectors; moves that need no alignment are as fast where it is.
if(MINGW AND CMAKE_CXX_COMPILER_ID STREQUAL GNU)
  add_compile_options(-Wa,-muse-unaligned-vector-move)
endif()

function(vnxstd_compile_options target)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wconversion -Wshadow
    ${VNXSTD_ARITHMETIC}  # every instruction-set level and platform gives the same bits
    $<$<BOOL:${VNXSTD_WERROR}>:-Werror>)
  if(VNXSTD_SANITIZE)
    # Instrumented standard headers make g++ 12 report members as uninitialised that are not.
    target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>
      -fsanitize=${VNXSTD_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(${target} PRIVATE -fsanitize=${VNXSTD_SANITIZE})
  endif()
endfunction()
