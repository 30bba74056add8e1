# cmake -DSOURCE_DIR=... -DTEMPLATE=Info.lua.in -DINFO=Info.lua -DSTAMP=VERSION.build
#       -DPROJECT_VERSION_MAJOR=.. -DPROJECT_VERSION_MINOR=.. -DPROJECT_VERSION_PATCH=.. -P stamp_version.cmake
# The build string is yyyymmdd-hhmm-rrrrrrr: the UTC date and time of the build and the short source
# revision (seven zeros outside a git checkout). Files are rewritten only when the string changes.
string(TIMESTAMP when "%Y%m%d-%H%M" UTC)
execute_process(COMMAND git -C "${SOURCE_DIR}" rev-parse --short=7 HEAD
                OUTPUT_VARIABLE revision OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET RESULT_VARIABLE failed)
if(failed OR NOT revision MATCHES "^[0-9a-f]+$")
    set(revision "0000000")
endif()
string(SUBSTRING "${revision}0000000" 0 7 revision)
set(VTK_BUILD "${when}-${revision}")
file(WRITE "${STAMP}.tmp" "${VTK_BUILD}\n")
file(COPY_FILE "${STAMP}.tmp" "${STAMP}" ONLY_IF_DIFFERENT)
file(REMOVE "${STAMP}.tmp")
configure_file("${TEMPLATE}" "${INFO}.tmp" @ONLY)
file(COPY_FILE "${INFO}.tmp" "${INFO}" ONLY_IF_DIFFERENT)
file(REMOVE "${INFO}.tmp")
