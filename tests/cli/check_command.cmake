# cmake -DCOMMAND="prog;args" -DEXIT=n [-DSTDOUT=text | -DGOLDEN=file | -DSTDOUT_MATCHES=regex]
#       [-DSTDERR=regex] -P check_command.cmake
# Runs one command and checks its exit status, its standard output (exactly, byte for byte against
# a golden file, or against a regular expression where it depends on the machine) and its
# standard error.
execute_process(COMMAND ${COMMAND} RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
set(problems "")
if(NOT status STREQUAL EXIT)
    string(APPEND problems "exit status ${status}, expected ${EXIT}\n")
endif()
if(DEFINED GOLDEN)
    file(READ "${GOLDEN}" expected)
    if(NOT out STREQUAL expected)
        string(APPEND problems "standard output differs from ${GOLDEN}\n")
    endif()
elseif(DEFINED STDOUT AND NOT out STREQUAL "${STDOUT}\n")
    string(APPEND problems "standard output is not \"${STDOUT}\"\n")
elseif(DEFINED STDOUT_MATCHES AND NOT out MATCHES "${STDOUT_MATCHES}")
    string(APPEND problems "standard output does not match \"${STDOUT_MATCHES}\"\n")
endif()
if(DEFINED STDERR AND NOT err MATCHES "${STDERR}")
    string(APPEND problems "standard error does not match \"${STDERR}\"\n")
endif()
if(problems)
    message(FATAL_ERROR "${problems}--- stdout:\n${out}--- stderr:\n${err}")
endif()
