# The target `lint` checks the sources, the target `format` lays them out; the test `lint` is part of the suite.
# To be included last, when all targets are known: moc's files and the lists of headers come from the build.

find_package(Python3 COMPONENTS Interpreter)
find_program(VESK_QMLLINT qmllint HINTS "${QT6_INSTALL_PREFIX}/${QT6_INSTALL_BINS}" NO_CACHE)
if(NOT Python3_FOUND)
    message(STATUS "No Python 3: the sources are not checked")
    return()
endif()

set(lint ${CMAKE_COMMAND} -E env QMLLINT=${VESK_QMLLINT}
    ${Python3_EXECUTABLE} ${CMAKE_SOURCE_DIR}/cmake/lint.py ${CMAKE_SOURCE_DIR} ${CMAKE_BINARY_DIR})
get_property(targets GLOBAL PROPERTY VESK_TARGETS)
add_custom_target(lint COMMAND ${lint} DEPENDS ${targets} USES_TERMINAL VERBATIM)
add_custom_target(format COMMAND ${lint} --format USES_TERMINAL VERBATIM)

# It uses every processor itself, and starts first: nothing that measures time runs beside it.
cmake_host_system_information(RESULT processors QUERY NUMBER_OF_LOGICAL_CORES)
add_test(NAME lint COMMAND ${lint})
set_tests_properties(lint PROPERTIES
    SKIP_RETURN_CODE 77 TIMEOUT 900 PROCESSORS ${processors} COST 10000)
