# Warnings, pinned arithmetic and sanitizers, the same for every target of the project.

find_program(VNXSTD_CCACHE ccache)
if(VNXSTD_CCACHE AND PROJECT_IS_TOP_LEVEL AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${VNXSTD_CCACHE})
endif()

function(vnxstd_compile_options target)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wconversion -Wshadow
    -ffp-contract=off  # every instruction-set level and platform gives the same bits
    $<$<BOOL:${VNXSTD_WERROR}>:-Werror>)
  if(VNXSTD_SANITIZE)
    # Instrumented standard headers make g++ 12 report members as uninitialised that are not.
    target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>
      -fsanitize=${VNXSTD_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(${target} PRIVATE -fsanitize=${VNXSTD_SANITIZE})
  endif()
endfunction()
