# How the project declares its libraries and tests.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

function(vesk_flags target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Werror)
    target_compile_definitions(${target} PRIVATE
        QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII QT_NO_KEYWORDS QT_NO_FOREACH
        QT_DISABLE_DEPRECATED_UP_TO=0x060800)
endfunction()

# vesk_library(core SOURCES a.cpp a.h LINKS Qt6::Sql vesk_platform)
# A static library whose headers are those of its own folder; what it links to is all that it can include.
function(vesk_library name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LINKS" ${ARGN})
    add_library(vesk_${name} STATIC ${ARG_SOURCES})
    target_include_directories(vesk_${name} PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
    target_link_libraries(vesk_${name} PUBLIC Qt6::Core ${ARG_LINKS})
    vesk_flags(vesk_${name})
endfunction()

# vesk_test(store LINKS vesk_core): one Qt Test executable made of tst_store.cpp.
function(vesk_test name)
    cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;LINKS" ${ARGN})
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 120)
    endif()
    add_executable(tst_${name} tst_${name}.cpp ${ARG_SOURCES})
    target_link_libraries(tst_${name} PRIVATE Qt6::Test ${ARG_LINKS})
    set_target_properties(tst_${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
    vesk_flags(tst_${name})
    add_test(NAME ${name} COMMAND tst_${name})
    set_tests_properties(${name} PROPERTIES TIMEOUT ${ARG_TIMEOUT}
        ENVIRONMENT "QT_QPA_PLATFORM=offscreen;QT_QUICK_BACKEND=software;LC_ALL=C.UTF-8")
endfunction()
