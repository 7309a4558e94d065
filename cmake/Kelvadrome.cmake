# One folder is one static library, so that a folder that reaches for what it doesn't declare fails to link.

find_package(Threads REQUIRED)
find_package(Boost 1.81 REQUIRED COMPONENTS json url)
find_package(simdjson REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(SODIUM REQUIRED IMPORTED_TARGET libsodium)
pkg_check_modules(RE2 REQUIRED IMPORTED_TARGET re2)
pkg_check_modules(UTF8PROC REQUIRED IMPORTED_TARGET libutf8proc)
pkg_check_modules(FMT REQUIRED IMPORTED_TARGET fmt)

set(KELVADROME_SANITIZE "" CACHE STRING "Sanitizers, as -fsanitize takes them")

add_library(kelvadrome_options INTERFACE)
target_include_directories(kelvadrome_options INTERFACE ${CMAKE_SOURCE_DIR})
# -fPIC everywhere, so that modules can link the same libraries and one precompiled header serves all.
target_compile_options(kelvadrome_options INTERFACE -Wall -Wextra -Wpedantic -Werror -fPIC)
target_compile_definitions(kelvadrome_options INTERFACE
    BOOST_ASIO_NO_DEPRECATED KELVADROME_VERSION="${PROJECT_VERSION}")
# When it optimises, GCC 12 sees overlaps and overflows in "literal" + string that aren't there (its bug 105651), and
# takes a variant in a coroutine's frame for unset.
target_compile_options(kelvadrome_options INTERFACE
    -Wno-restrict -Wno-array-bounds -Wno-stringop-overflow -Wno-stringop-overread -Wno-maybe-uninitialized)
if(CMAKE_UNITY_BUILD)
    # What takes most of the time of a source is to load the precompiled header, so that eight at once are built
    # four times as fast. GCC then takes the frames of coroutines for types that other sources see.
    target_compile_options(kelvadrome_options INTERFACE -Wno-subobject-linkage)
endif()
if(KELVADROME_SANITIZE)
    target_compile_options(kelvadrome_options INTERFACE
        -fsanitize=${KELVADROME_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    target_link_options(kelvadrome_options INTERFACE -fsanitize=${KELVADROME_SANITIZE})
    target_compile_options(kelvadrome_options INTERFACE -Wno-tsan)
endif()
target_link_libraries(kelvadrome_options INTERFACE Threads::Threads)

# kelvadrome_library(NAME [LINK targets...]): a static library of the sources in the current folder.
function(kelvadrome_library name)
    cmake_parse_arguments(ARG "" "" "LINK;SOURCES" ${ARGN})
    if(NOT ARG_SOURCES)
        file(GLOB ARG_SOURCES CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
    endif()
    add_library(${name} STATIC ${ARG_SOURCES})
    set_property(GLOBAL APPEND PROPERTY KELVADROME_LIBRARIES ${name})
    target_link_libraries(${name} PUBLIC kelvadrome_options ${ARG_LINK})
    kelvadrome_precompile(${name})
endfunction()

# One precompiled header for everything: the standard library, coroutines and JSON dominate compile time.
function(kelvadrome_precompile name)
    if(name STREQUAL "kit_support")
        target_precompile_headers(${name} PRIVATE ${CMAKE_SOURCE_DIR}/cmake/Precompiled.h)
    else()
        target_precompile_headers(${name} REUSE_FROM kit_support)
    endif()
endfunction()
