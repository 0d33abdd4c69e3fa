# Shared compile settings and test registration for every Glinta target.

set(GLINTA_SANITIZER_FLAGS
    -fsanitize=address,undefined,float-cast-overflow
    -fno-sanitize-recover=undefined,float-cast-overflow
    -fno-omit-frame-pointer)

# The fuzz build (GLINTA_FUZZ): every target gets coverage instrumentation; only the fuzz targets link
# libFuzzer's main (fuzz/CMakeLists.txt). A sanitizer finding must end the run, so nothing recovers.
if(GLINTA_FUZZ)
    if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        message(FATAL_ERROR "GLINTA_FUZZ needs clang (libFuzzer), not ${CMAKE_CXX_COMPILER_ID}")
    endif()
    # Without "function": clang 14 cannot emit its check together with coverage in a coroutine ("Cannot
    # represent a difference across sections"), and no decoder calls through a function pointer.
    set(GLINTA_FUZZ_SANITIZER_FLAGS
        -fno-sanitize=function
        -fno-sanitize-recover=all
        -fno-omit-frame-pointer)
    set(GLINTA_FUZZ_FLAGS -fsanitize=fuzzer-no-link,address,undefined ${GLINTA_FUZZ_SANITIZER_FLAGS})
endif()

# Warnings, Qt defines and (in the test build) sanitizers, applied per target rather than globally so
# that third-party code pulled in later keeps its own settings.
function(glinta_apply_defaults target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic)
    if(GLINTA_WARNINGS_AS_ERRORS)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
    target_compile_definitions(${target} PRIVATE
        QT_NO_CAST_FROM_ASCII
        QT_NO_URL_CAST_FROM_STRING
        QT_NO_FOREACH
        QT_USE_QSTRINGBUILDER)
    if(GLINTA_FUZZ)
        target_compile_options(${target} PRIVATE ${GLINTA_FUZZ_FLAGS})
        target_link_options(${target} PRIVATE ${GLINTA_FUZZ_FLAGS})
    elseif(GLINTA_SANITIZE)
        target_compile_options(${target} PRIVATE ${GLINTA_SANITIZER_FLAGS})
        target_link_options(${target} PRIVATE ${GLINTA_SANITIZER_FLAGS})
    endif()
endfunction()

# glinta_add_test(<name> SOURCES ... [LIBRARIES ...] [ENVIRONMENT VAR=value ...] [TIMEOUT s] [ZONES tz ...]
#                  [LABELS label ...])
#
# Builds one Qt Test program and registers it with ctest. With ZONES it is registered once per time zone
# (as "<name>:<zone>"), for code that captures the system zone once per process. LABELS defaults to unit:
# a test that needs no keyring, display or session bus and takes seconds (`ctest -L unit`); session is
# one that needs the headless session, drill the fault drills.
function(glinta_add_test name)
    cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;LIBRARIES;ENVIRONMENT;ZONES;LABELS" ${ARGN})
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 120)
    endif()
    if(NOT ARG_LABELS)
        set(ARG_LABELS unit)
    endif()

    add_executable(${name} ${ARG_SOURCES})
    glinta_apply_defaults(${name})
    target_link_libraries(${name} PRIVATE Qt6::Test ${ARG_LIBRARIES})
    target_compile_definitions(${name} PRIVATE GLINTA_TEST_DATA_DIR="${CMAKE_CURRENT_SOURCE_DIR}/data")

    set(env
        QT_QPA_PLATFORM=offscreen
        QT_FORCE_STDERR_LOGGING=1
        "ASAN_OPTIONS=detect_stack_use_after_return=1:strict_init_order=1:check_initialization_order=1"
        "UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1"
        "LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/lsan.supp:print_suppressions=0"
        ${ARG_ENVIRONMENT})

    if(ARG_ZONES)
        foreach(zone IN LISTS ARG_ZONES)
            set(test_name "${name}:${zone}")
            add_test(NAME ${test_name} COMMAND ${name})
            set_tests_properties(${test_name} PROPERTIES
                ENVIRONMENT "${env};TZ=${zone}"
                TIMEOUT ${ARG_TIMEOUT}
                LABELS "${ARG_LABELS}"
                SKIP_REGULAR_EXPRESSION "SKIP   : ")
        endforeach()
    else()
        add_test(NAME ${name} COMMAND ${name})
        set_tests_properties(${name} PROPERTIES
            ENVIRONMENT "${env}"
            TIMEOUT ${ARG_TIMEOUT}
            LABELS "${ARG_LABELS}"
            SKIP_REGULAR_EXPRESSION "SKIP   : ")
    endif()
endfunction()

# glinta_platform_sources(<target> <seam>... [LINUX_LIBRARIES lib...])
#
# Each seam is a neutral <seam>.h with two sides: <seam>_linux.cpp, and <seam>_portable.cpp built only
# from Qt, which GLINTA_PORTABLE picks (and any system but Linux gets). A port adds its own side here.
function(glinta_platform_sources target)
    cmake_parse_arguments(ARG "" "" "LINUX_LIBRARIES" ${ARGN})
    foreach(seam IN LISTS ARG_UNPARSED_ARGUMENTS)
        if(GLINTA_PORTABLE)
            target_sources(${target} PRIVATE ${seam}_portable.cpp)
        else()
            target_sources(${target} PRIVATE ${seam}_linux.cpp)
        endif()
    endforeach()
    if(NOT GLINTA_PORTABLE AND ARG_LINUX_LIBRARIES)
        target_link_libraries(${target} PRIVATE ${ARG_LINUX_LIBRARIES})
    endif()
endfunction()
