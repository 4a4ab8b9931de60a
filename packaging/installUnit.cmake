# Run by `cmake --install` and CPack: writes the systemd user unit for the prefix of this install
# (CMAKE_INSTALL_PREFIX here is the one chosen at install time) and installs it. Expects
# UIET_UNIT_TEMPLATE, UIET_UNIT_OUTPUT and UIET_BINDIR (relative to the prefix).
set(tool "${CMAKE_INSTALL_PREFIX}/${UIET_BINDIR}/ui-element-tool")
# systemd splits a command line at blanks unless the word is quoted.
if(tool MATCHES " ")
  set(tool "\"${tool}\"")
endif()
file(READ "${UIET_UNIT_TEMPLATE}" unit)
string(REPLACE "@UIET_TOOL@" "${tool}" unit "${unit}")
file(WRITE "${UIET_UNIT_OUTPUT}" "${unit}")
file(INSTALL DESTINATION "${CMAKE_INSTALL_PREFIX}/lib/systemd/user" TYPE FILE FILES "${UIET_UNIT_OUTPUT}")
