# Writes OUTPUT, the manual page PAGE with @CLIENTS@ in it replaced by what CHECKER says of the clients.
cmake_minimum_required(VERSION 3.22)
execute_process(COMMAND ${CHECKER} --clients OUTPUT_VARIABLE CLIENTS COMMAND_ERROR_IS_FATAL ANY)
# What the page's language would obey.
string(REPLACE "\\" "\\e" CLIENTS "${CLIENTS}")
string(REGEX REPLACE "(^|\n)([.'])" "\\1\\\\&\\2" CLIENTS "${CLIENTS}")
file(READ ${PAGE} page)
string(REPLACE "@CLIENTS@\n" "${CLIENTS}" page "${page}")
file(WRITE ${OUTPUT} "${page}")
