# Build variants that check the module beyond its unit tests: ThreadSanitizer,
# frame sizes and call graph for the stack check, coverage, and the libFuzzer
# targets. Included by the top-level list before any target is defined, so
# that the flags reach every object.

option(ISPIAAS_TSAN "Build with ThreadSanitizer" OFF)
if(ISPIAAS_TSAN)
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
endif()

# Each object's frame sizes (.su) and call graph with them (.ci), read by the
# stack check of tests/hardening (GCC only).
option(ISPIAAS_STACK_USAGE "Record frame sizes and the call graph of every object" OFF)
if(ISPIAAS_STACK_USAGE)
  add_compile_options(-fstack-usage -fcallgraph-info=su)
endif()

option(ISPIAAS_COVERAGE "Build with line and branch coverage counters" OFF)
if(ISPIAAS_COVERAGE)
  add_compile_options(--coverage)
  add_link_options(--coverage)
endif()

# The fuzz targets need clang (16 or later, for std::source_location): every object is built for libFuzzer's coverage
# feedback and with ASan+UBSan; the unit suite is not built.
option(ISPIAAS_FUZZ "Build the libFuzzer targets (clang)" OFF)
if(ISPIAAS_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "ISPIAAS_FUZZ needs clang (the fuzz preset selects it)")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()

# GoogleTest built from Debian's sources, for a target that has no packaged
# libraries (the cross build); otherwise the installed package.
set(ISPIAAS_GTEST_SOURCE "" CACHE PATH "GoogleTest sources to build instead of the installed package")
