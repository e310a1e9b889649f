# The libraries Orvanta stands on, each as one target. With ORVANTA_STATIC_DEPENDENCIES an archive is preferred to a
# shared library: most of the time of a short command goes into loading and relocating shared ones. The C library stays
# shared, because looking up users loads modules of it.

include(FindPackageHandleStandardArgs)

# The archive of a library, or the shared library where the system ships no archive.
function(orvanta_find_library variable name)
  if(ORVANTA_STATIC_DEPENDENCIES)
    set(CMAKE_FIND_LIBRARY_SUFFIXES ".a" ${CMAKE_FIND_LIBRARY_SUFFIXES})
  endif()
  find_library(${variable} ${name} REQUIRED)
endfunction()

find_package(Threads REQUIRED)
find_package(nlohmann_json 3.11 REQUIRED)
find_package(CLI11 2.1 REQUIRED)

if(ORVANTA_STATIC_DEPENDENCIES)
  set(OPENSSL_USE_STATIC_LIBS ON)
  find_package(OpenSSL 3 QUIET COMPONENTS Crypto)
  unset(OPENSSL_USE_STATIC_LIBS)
endif()
find_package(OpenSSL 3 REQUIRED COMPONENTS Crypto)

find_path(SQLITE3_INCLUDE_DIR sqlite3.h REQUIRED)
orvanta_find_library(SQLITE3_LIBRARY sqlite3)
add_library(orvanta_sqlite3 INTERFACE)
target_include_directories(orvanta_sqlite3 SYSTEM INTERFACE "${SQLITE3_INCLUDE_DIR}")
target_link_libraries(orvanta_sqlite3 INTERFACE "${SQLITE3_LIBRARY}" m Threads::Threads ${CMAKE_DL_LIBS})

find_path(UTF8PROC_INCLUDE_DIR utf8proc.h REQUIRED)
orvanta_find_library(UTF8PROC_LIBRARY utf8proc)
add_library(orvanta_utf8proc INTERFACE)
target_include_directories(orvanta_utf8proc SYSTEM INTERFACE "${UTF8PROC_INCLUDE_DIR}")
target_link_libraries(orvanta_utf8proc INTERFACE "${UTF8PROC_LIBRARY}")
if(UTF8PROC_LIBRARY MATCHES "\\.a$")
  target_compile_definitions(orvanta_utf8proc INTERFACE UTF8PROC_STATIC)
endif()

find_path(PCRE2_INCLUDE_DIR pcre2.h REQUIRED)
orvanta_find_library(PCRE2_LIBRARY pcre2-8)
add_library(orvanta_pcre2 INTERFACE)
target_include_directories(orvanta_pcre2 SYSTEM INTERFACE "${PCRE2_INCLUDE_DIR}")
target_compile_definitions(orvanta_pcre2 INTERFACE PCRE2_CODE_UNIT_WIDTH=8)
target_link_libraries(orvanta_pcre2 INTERFACE "${PCRE2_LIBRARY}")

# Loaded when they are first used, because loading them at start would take four times as long as a short command: of
# these only the headers are needed here.
find_path(CURL_INCLUDE_DIR curl/curl.h REQUIRED)
add_library(orvanta_curl INTERFACE)
target_include_directories(orvanta_curl SYSTEM INTERFACE "${CURL_INCLUDE_DIR}")
target_link_libraries(orvanta_curl INTERFACE ${CMAKE_DL_LIBS})

add_library(orvanta_key_store INTERFACE)
if(APPLE)
  target_link_libraries(orvanta_key_store INTERFACE "-framework Security" "-framework CoreFoundation")
else()
  find_package(PkgConfig REQUIRED)
  pkg_check_modules(LIBSECRET REQUIRED libsecret-1)
  target_include_directories(orvanta_key_store SYSTEM INTERFACE ${LIBSECRET_INCLUDE_DIRS})
  target_link_libraries(orvanta_key_store INTERFACE ${CMAKE_DL_LIBS})
endif()

# Debian ships {fmt} without an archive. Its headers hold all of it, but compiled into every file they cost two seconds
# each, so one file of ours holds the compiled part.
find_package(fmt 9 REQUIRED)
set(ORVANTA_STATIC_STDLIB ${ORVANTA_STATIC_DEPENDENCIES})
if(ORVANTA_STATIC_DEPENDENCIES)
  find_library(FMT_ARCHIVE libfmt.a)
endif()
if(ORVANTA_STATIC_DEPENDENCIES AND FMT_ARCHIVE)
  get_target_property(fmt_includes fmt::fmt INTERFACE_INCLUDE_DIRECTORIES)
  add_library(orvanta_fmt INTERFACE)
  target_include_directories(orvanta_fmt SYSTEM INTERFACE "${fmt_includes}")
  target_link_libraries(orvanta_fmt INTERFACE "${FMT_ARCHIVE}")
elseif(ORVANTA_STATIC_DEPENDENCIES AND fmt_VERSION VERSION_LESS 10)
  get_target_property(fmt_includes fmt::fmt INTERFACE_INCLUDE_DIRECTORIES)
  add_library(orvanta_fmt STATIC "${PROJECT_SOURCE_DIR}/cmake/fmt.cpp")
  target_include_directories(orvanta_fmt SYSTEM PUBLIC "${fmt_includes}")
else()
  add_library(orvanta_fmt INTERFACE)
  target_link_libraries(orvanta_fmt INTERFACE fmt::fmt)
  # The shared {fmt} brings the shared standard library: a second, static one beside it would split its state in two.
  set(ORVANTA_STATIC_STDLIB OFF)
endif()
if(APPLE OR CMAKE_CXX_FLAGS MATCHES "libc\\+\\+")
  set(ORVANTA_STATIC_STDLIB OFF)
endif()
