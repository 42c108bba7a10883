# What every target of ours has in common, and one function for each kind of target.
#
#   vesk_library(core SOURCES store.h store.cpp LINKS vesk_platform Qt6::Sql)
#   vesk_executable(vesk SOURCES main.cpp LINKS vesk_app)
#   vesk_test(store LINKS vesk_core)
#
# To be included by the root after project().

option(VESK_WERROR "Warnings are errors" ON)
option(VESK_SANITIZE "Build with address and undefined-behaviour checks" OFF)
option(VESK_FUZZ "Build tests/fuzz with libFuzzer, which takes clang" OFF)
set(VESK_TOGETHER 6 CACHE STRING "Files of a library that are compiled as one, 1 for each alone")

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
# The same libraries serve the executable and the interface, which it loads when a window is wanted.
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_AUTOMOC ON)
set(CMAKE_AUTOUIC OFF)
# Our mocs need nothing of the libraries that a target links: let them run before those are built.
set(CMAKE_AUTOGEN_ORIGIN_DEPENDS OFF)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib")

# Every clone compiles much the same text: with the paths taken as relative to the checkout, a new
# clone is served by what the last one left in the cache.
find_program(VESK_CCACHE ccache)
mark_as_advanced(VESK_CCACHE)
if(VESK_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_CXX_COMPILER_LAUNCHER
        ${CMAKE_COMMAND} -E env CCACHE_BASEDIR=${CMAKE_SOURCE_DIR} CCACHE_NOHASHDIR=1
        CCACHE_SLOPPINESS=pch_defines,time_macros ${VESK_CCACHE})
endif()

# It links in a fifth of the time.
find_program(VESK_LLD ld.lld)
mark_as_advanced(VESK_LLD)
if(VESK_LLD)
    add_link_options(-fuse-ld=lld)
endif()

add_library(vesk_settings INTERFACE)
target_compile_options(vesk_settings INTERFACE
    -Wall -Wextra -Wpedantic -Wnon-virtual-dtor -Wcast-align -Wundef
    $<$<CXX_COMPILER_ID:GNU>:-Wshadow=local;-Wlogical-op;-Wduplicated-cond>
    $<$<BOOL:${VESK_WERROR}>:-Werror>)
target_compile_definitions(vesk_settings INTERFACE
    QT_DISABLE_DEPRECATED_UP_TO=0x060800
    QT_NO_FOREACH
    QT_NO_KEYWORDS
    QT_NO_NARROWING_CONVERSIONS_IN_CONNECT
    QT_NO_URL_CAST_FROM_STRING
    $<$<CONFIG:Debug>:_GLIBCXX_ASSERTIONS>)
if(VESK_SANITIZE)
    set(sanitizers -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
    target_compile_options(vesk_settings INTERFACE ${sanitizers} -g1 -O1)
    target_link_options(vesk_settings INTERFACE ${sanitizers})
endif()
if(VESK_FUZZ)
    include(CheckCXXSourceCompiles)
    set(CMAKE_REQUIRED_FLAGS -fsanitize=fuzzer)
    check_cxx_source_compiles("extern \"C\" int LLVMFuzzerTestOneInput(const char *, unsigned long) { return 0; }"
        VESK_HAS_LIBFUZZER)
    unset(CMAKE_REQUIRED_FLAGS)
    if(NOT VESK_HAS_LIBFUZZER)
        message(FATAL_ERROR "The preset fuzz needs clang with libFuzzer: Debian's packages clang and libclang-rt-dev")
    endif()
    target_compile_options(vesk_settings INTERFACE -fsanitize=fuzzer-no-link -Wno-overloaded-virtual)
    target_link_options(vesk_settings INTERFACE -fsanitize=fuzzer-no-link)
endif()

# Tests may compare a QString with a plain literal; in the product every conversion is written out. A test is run about
# as often as it is compiled.
add_library(vesk_lenient INTERFACE)
target_link_libraries(vesk_lenient INTERFACE vesk_settings)
target_compile_options(vesk_lenient INTERFACE $<$<CONFIG:Release>:-O1>)
add_library(vesk_strict INTERFACE)
target_link_libraries(vesk_strict INTERFACE vesk_settings)
target_compile_definitions(vesk_strict INTERFACE
    QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII QT_NO_CAST_FROM_BYTEARRAY)

# Nine tenths of what the compiler reads for a source of ours are headers of Qt and of the standard library; here they are
# read once for all libraries and once for all tests. What uses them is compiled with the same flags, -fPIC for a program,
# too, and with no macro that one of the headers asks for: so the modules lend their folders and not their names.
# A file still includes what it uses: the lint looks at it without these.
function(vesk_precompiled name)
    cmake_parse_arguments(PARSE_ARGV 1 ARG "" "" "MODULES;LINKS;HEADERS")
    set(source ${CMAKE_CURRENT_BINARY_DIR}/${name}.cpp)
    file(CONFIGURE OUTPUT ${source} CONTENT "")
    add_library(${name} OBJECT ${source})
    set_target_properties(${name} PROPERTIES AUTOMOC OFF)
    target_link_libraries(${name} PRIVATE Qt6::Core ${ARG_LINKS})
    foreach(module IN LISTS ARG_MODULES)
        target_include_directories(${name} SYSTEM PRIVATE $<TARGET_PROPERTY:${module},INTERFACE_INCLUDE_DIRECTORIES>)
    endforeach()
    target_compile_options(${name} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-fpch-preprocess>)
    target_precompile_headers(${name} PRIVATE ${ARG_HEADERS})
endfunction()
function(vesk_use_precompiled target name)
    # the second for ccache, which reads the preprocessed text
    target_compile_options(${target} PRIVATE -fPIC $<$<CXX_COMPILER_ID:GNU>:-fpch-preprocess>)
    target_precompile_headers(${target} REUSE_FROM ${name})
endfunction()

set(headers
    <algorithm> <array> <chrono> <functional> <map> <memory> <optional> <string> <unordered_map> <utility> <vector>
    <QCoreApplication> <QCryptographicHash> <QDateTime> <QDir> <QElapsedTimer> <QFile> <QFileInfo> <QHash> <QJsonArray>
    <QJsonDocument> <QJsonObject> <QList> <QMap> <QObject> <QPointer> <QProcess> <QRegularExpression> <QSaveFile> <QSet>
    <QStandardPaths> <QString> <QStringList> <QTemporaryDir> <QThread> <QTimer> <QUrl> <QUuid> <QVariant>
    <QNetworkAccessManager> <QNetworkReply> <QNetworkRequest> <QTcpServer> <QTcpSocket> <QSqlDatabase> <QSqlError> <QSqlQuery>)
vesk_precompiled(vesk_headers MODULES Qt6::Network Qt6::Sql LINKS vesk_strict HEADERS ${headers})
vesk_precompiled(vesk_test_headers MODULES Qt6::Network Qt6::Sql Qt6::Test LINKS vesk_lenient
    HEADERS ${headers} <QBitArray> <QEventLoop> <QScopeGuard> <QSignalSpy> <QtTest/qtestcase.h> <QtTest/qbenchmark.h>
    ${PROJECT_SOURCE_DIR}/tests/support/patience.h)

# Qt6::Test without its macros: they name the folder of each test, and no two would share headers or a cache.
add_library(vesk_qt_test INTERFACE)
target_link_libraries(vesk_qt_test INTERFACE Qt6::Core $<LINK_ONLY:Qt6::Test>)
target_include_directories(vesk_qt_test SYSTEM INTERFACE $<TARGET_PROPERTY:Qt6::Test,INTERFACE_INCLUDE_DIRECTORIES>)

# Loading the headers costs more than compiling a short file, so some are compiled as one. They share their anonymous
# namespaces then: a name in there stands once in a folder.
function(vesk_compile_together target)
    if(VESK_TOGETHER GREATER 1)
        set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE ${VESK_TOGETHER})
    endif()
endfunction()

# A target of tests or measurements.
function(vesk_test_settings target)
    target_link_libraries(${target} PRIVATE vesk_lenient)
    vesk_use_precompiled(${target} vesk_test_headers)
    get_target_property(type ${target} TYPE)
    if(type STREQUAL EXECUTABLE) # its classes are in no header: this file is empty
        set_source_files_properties(${CMAKE_CURRENT_BINARY_DIR}/${target}_autogen/mocs_compilation.cpp
            PROPERTIES SKIP_PRECOMPILE_HEADERS ON)
    else()
        vesk_compile_together(${target})
    endif()
endfunction()

# A folder of src/ as a static library vesk_<name>. Its headers are seen by their bare names by whoever
# links it, and its links are passed on: a layer sees the layers below and nothing else.
function(vesk_library name)
    cmake_parse_arguments(PARSE_ARGV 1 ARG "" "" "SOURCES;LINKS")
    add_library(vesk_${name} STATIC ${ARG_SOURCES})
    target_include_directories(vesk_${name} PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
    target_link_libraries(vesk_${name} PUBLIC Qt6::Core ${ARG_LINKS} PRIVATE vesk_strict)
    vesk_use_precompiled(vesk_${name} vesk_headers)
    # A folder of headers alone is a library, too: it keeps its place between the layers.
    set_property(GLOBAL APPEND PROPERTY VESK_TARGETS vesk_${name})
    set_target_properties(vesk_${name} PROPERTIES LINKER_LANGUAGE CXX)
    vesk_compile_together(vesk_${name})
endfunction()

# A program build/bin/<name>.
function(vesk_executable name)
    cmake_parse_arguments(PARSE_ARGV 1 ARG "" "" "SOURCES;LINKS")
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE ${ARG_LINKS} vesk_strict)
    set_property(GLOBAL APPEND PROPERTY VESK_TARGETS ${name})
endfunction()

# A library vesk_<name> in the file lib<file>.so, which the executable loads when it needs what is in there.
function(vesk_loaded name file)
    cmake_parse_arguments(PARSE_ARGV 2 ARG "" "" "SOURCES;LINKS")
    add_library(vesk_${name} MODULE ${ARG_SOURCES})
    target_include_directories(vesk_${name} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
    target_link_libraries(vesk_${name} PRIVATE ${ARG_LINKS} vesk_strict)
    vesk_use_precompiled(vesk_${name} vesk_headers)
    set_target_properties(vesk_${name} PROPERTIES OUTPUT_NAME ${file}
        LIBRARY_OUTPUT_DIRECTORY "${CMAKE_RUNTIME_OUTPUT_DIRECTORY}")
    vesk_compile_together(vesk_${name})
    install(TARGETS vesk_${name} LIBRARY DESTINATION lib/vesk)
    set_property(GLOBAL APPEND PROPERTY VESK_TARGETS vesk_${name})
endfunction()

# The environment of every test: no screen, no graphics card, one language.
set(VESK_TEST_ENVIRONMENT
    QT_QPA_PLATFORM=offscreen QT_QUICK_BACKEND=software LC_ALL=C.UTF-8
    ASAN_OPTIONS=detect_stack_use_after_return=1
    LSAN_OPTIONS=suppressions=${CMAKE_SOURCE_DIR}/cmake/lsan.supp:print_suppressions=0
    UBSAN_OPTIONS=print_stacktrace=1)

# tst_<name>.cpp as the program build/bin/tests/tst_<name> and the ctest test <name>.
#   SOURCES  further files        LINKS  what it tests, Qt6::Test is there already
#   TIMEOUT  seconds, default 120 ARGS   arguments of the program
#   SERIAL   nothing else runs beside it: for tests that measure time
#   DEPENDS  programs it starts; their paths are the compile definitions <TARGET>_PROGRAM
function(vesk_test name)
    cmake_parse_arguments(PARSE_ARGV 1 ARG "SERIAL" "TIMEOUT" "SOURCES;LINKS;ARGS;DEPENDS")
    set(target tst_${name})
    add_executable(${target} tst_${name}.cpp ${ARG_SOURCES})
    target_include_directories(${target} PRIVATE "${PROJECT_SOURCE_DIR}/tests/support")
    target_link_libraries(${target} PRIVATE ${ARG_LINKS} vesk_qt_test)
    vesk_test_settings(${target})
    set_target_properties(${target} PROPERTIES
        RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin/tests")
    set_property(GLOBAL APPEND PROPERTY VESK_TARGETS ${target})
    foreach(program IN LISTS ARG_DEPENDS)
        string(MAKE_C_IDENTIFIER "${program}" id)
        string(TOUPPER "${id}" id)
        add_dependencies(${target} ${program})
        target_compile_definitions(${target} PRIVATE "${id}_PROGRAM=\"$<TARGET_FILE:${program}>\"")
    endforeach()
    add_test(NAME ${name} COMMAND ${target} ${ARG_ARGS})
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 120)
    endif()
    if(VESK_SANITIZE)
        math(EXPR ARG_TIMEOUT "${ARG_TIMEOUT} * 4")
    endif()
    set_tests_properties(${name} PROPERTIES
        ENVIRONMENT "${VESK_TEST_ENVIRONMENT}" TIMEOUT ${ARG_TIMEOUT}
        RUN_SERIAL "${ARG_SERIAL}")
endfunction()

# test_<name>.py as the ctest test <name>, run by pytest. Its programs lie in VESK_BIN; where pytest or pexpect isn't
# installed the test is skipped. The target test_<name> builds what it starts.
#   DEPENDS  programs it starts        TIMEOUT  seconds, default 120
function(vesk_pytest name)
    cmake_parse_arguments(PARSE_ARGV 1 ARG "" "TIMEOUT" "DEPENDS")
    find_package(Python3 REQUIRED COMPONENTS Interpreter)
    if(NOT DEFINED VESK_PYTEST_FOUND)
        execute_process(COMMAND ${Python3_EXECUTABLE} -c "import pytest, pexpect" RESULT_VARIABLE failed ERROR_QUIET)
        if(failed)
            message(STATUS "pytest or pexpect is not installed: the tests of whole programs are skipped")
        endif()
        set(VESK_PYTEST_FOUND TRUE PARENT_SCOPE)
    endif()
    add_custom_target(test_${name} DEPENDS ${ARG_DEPENDS})
    add_test(NAME ${name} COMMAND ${Python3_EXECUTABLE} -B -m pytest ${CMAKE_CURRENT_SOURCE_DIR}/test_${name}.py)
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 120)
    endif()
    if(VESK_SANITIZE)
        math(EXPR ARG_TIMEOUT "${ARG_TIMEOUT} * 4")
    endif()
    set_tests_properties(${name} PROPERTIES TIMEOUT ${ARG_TIMEOUT}
        ENVIRONMENT "${VESK_TEST_ENVIRONMENT};VESK_BIN=${CMAKE_RUNTIME_OUTPUT_DIRECTORY}"
        SKIP_REGULAR_EXPRESSION "No module named '?(pytest|pexpect)")
endfunction()
