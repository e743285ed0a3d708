# Prints the size of a stripped library: -DLIBRARY=... -DSTRIP=... -P size-report.cmake
get_filename_component(name "${LIBRARY}" NAME)
execute_process(COMMAND "${STRIP}" -o "${LIBRARY}.stripped" "${LIBRARY}" COMMAND_ERROR_IS_FATAL ANY)
file(SIZE "${LIBRARY}.stripped" bytes)
file(REMOVE "${LIBRARY}.stripped")
math(EXPR kibibytes "(${bytes} + 1023) / 1024")
message(STATUS "${name}: ${bytes} bytes stripped (${kibibytes} KiB)")
