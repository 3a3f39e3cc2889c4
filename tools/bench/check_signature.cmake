# Runs bench at its default settings and compares its total node count with the recorded one.
# Usage: cmake -DBENCH=<bench program> -DSIGNATURE=<signature.txt> -P check_signature.cmake
file(STRINGS "${SIGNATURE}" recorded REGEX "^[0-9]+$")
list(LENGTH recorded numbers)
if(NOT numbers EQUAL 1)
  message(FATAL_ERROR "${SIGNATURE} must hold one node count on a line of its own")
endif()

execute_process(COMMAND "${BENCH}" OUTPUT_VARIABLE output ERROR_VARIABLE errors
                RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "bench failed (${status}):\n${output}${errors}")
endif()
if(NOT output MATCHES "Total: ([0-9]+) nodes")
  message(FATAL_ERROR "bench printed no total:\n${output}")
endif()
set(measured "${CMAKE_MATCH_1}")

if(NOT measured STREQUAL recorded)
  message(FATAL_ERROR
    "${output}\n"
    "The bench signature moved: bench counts ${measured} nodes, ${SIGNATURE} records "
    "${recorded}. If the search was meant to change, record the new count there in the same "
    "commit and say so in its message.")
endif()
message(STATUS "bench signature ${measured}, as recorded")
