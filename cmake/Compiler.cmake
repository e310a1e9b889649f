# How our code is compiled: language, warnings, hardening, instrumentation.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# Everything of ours ends in an executable, never in a shared library, so PIE is enough and quicker than PIC.
if(NOT APPLE)
  add_compile_options(-fPIE)
  add_link_options(-pie)
endif()

# Precompiled headers carry times and paths that the cache must not compare.
find_program(CCACHE ccache)
if(CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER
      ${CMAKE_COMMAND} -E env "CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime"
      "${CCACHE}")
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    add_compile_options(-fpch-preprocess)
  else()
    add_compile_options("SHELL:-Xclang -fno-pch-timestamp")
  endif()
endif()

# Everything the linker can drop makes the program smaller and quicker to load.
add_compile_options(-ffunction-sections -fdata-sections)
if(APPLE)
  add_link_options(-Wl,-dead_strip)
else()
  # What is linked from archives is for the program alone: libraries loaded later, and those of the tests, bring their
  # own OpenSSL, and two halves of two copies must not meet. A sanitizer's runtime is an archive as well, whose malloc
  # all libraries must use.
  if(NOT ORVANTA_SANITIZERS)
    add_link_options(-Wl,--exclude-libs,ALL)
  endif()
  add_link_options(-Wl,--gc-sections -Wl,--as-needed -Wl,-z,relro,-z,now)
endif()

if(ORVANTA_SANITIZERS)
  add_compile_options(-fsanitize=${ORVANTA_SANITIZERS} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${ORVANTA_SANITIZERS})
  # To be compiled into each executable.
  set(ORVANTA_SANITIZER_SOURCES "${PROJECT_SOURCE_DIR}/cmake/sanitizers.cpp")
else()
  add_compile_options(-fstack-protector-strong)
  # Fortified calls need the optimiser, and the sanitizers check the same calls better.
  if(NOT ORVANTA_COVERAGE)
    add_compile_options("$<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
  endif()
endif()
if(ORVANTA_COVERAGE)
  add_compile_options(--coverage -fprofile-update=atomic)
  add_link_options(--coverage)
endif()
if(ORVANTA_FUZZERS)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "The fuzzers need Clang: use the preset \"fuzz\".")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
add_compile_definitions($<$<NOT:$<CONFIG:Release>>:_GLIBCXX_ASSERTIONS>)

# Linked privately by each of our targets, so that libraries keep their own rules.
add_library(orvanta_warnings INTERFACE)
target_compile_options(
  orvanta_warnings
  INTERFACE -Werror
            -Wall
            -Wextra
            -Wpedantic
            -Wconversion
            -Wsign-conversion
            -Wshadow
            -Wold-style-cast
            -Wnon-virtual-dtor
            -Woverloaded-virtual
            -Wformat=2
            -Wimplicit-fallthrough
            # GCC suspects the insides of its own headers once the optimiser has inlined them.
            $<$<CXX_COMPILER_ID:Clang,AppleClang>:-Wnull-dereference>
            # To leave out what has its default is what designated initialisers are for.
            -Wno-missing-field-initializers
            $<$<CXX_COMPILER_ID:Clang,AppleClang>:-Wthread-safety>)
