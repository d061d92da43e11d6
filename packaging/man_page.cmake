# Writes the manual page of PROGRAM into OUTPUT with help2man, from its --help
# and --version, adding the sections of INCLUDE. A program with commands (corv)
# also gets a COMMANDS section made of each command's own help page.
cmake_minimum_required(VERSION 3.18)
get_filename_component(name ${PROGRAM} NAME)
get_filename_component(work ${OUTPUT} DIRECTORY)
set(includes --include=${INCLUDE})

execute_process(COMMAND ${PROGRAM} --help OUTPUT_VARIABLE overview RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "${PROGRAM} --help failed (${status})")
endif()
# Commands are the lines of the overview that start with two blanks and a word.
string(REGEX MATCHALL "\n  [a-z][a-z-]*" commands "${overview}")
string(REGEX REPLACE "\n  " "" commands "${commands}")
list(REMOVE_DUPLICATES commands)
list(REMOVE_ITEM commands help)
set(section "")
foreach(command ${commands})
  execute_process(COMMAND ${PROGRAM} help ${command} OUTPUT_VARIABLE page RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    continue()
  endif()
  # Verbatim text in roff: backslashes escaped, dashes as minus signs, and a line that starts with a
  # period, an apostrophe or a bracket kept from being read as a request.
  string(REPLACE "\\" "\\e" page "${page}")
  string(REPLACE "-" "\\-" page "${page}")
  string(REGEX REPLACE "(^|\n)([.'[])" "\\1\\\\&\\2" page "${page}")
  string(APPEND section ".SS \"${name} ${command}\"\n.nf\n${page}.fi\n")
endforeach()
if(section)
  file(WRITE ${work}/${name}-commands.h2m "[COMMANDS]\n${section}")
  list(APPEND includes --include=${work}/${name}-commands.h2m)
endif()

execute_process(
  COMMAND ${HELP2MAN} --no-info --no-discard-stderr --section=1 ${includes}
          --output=${OUTPUT} ${PROGRAM}
  RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "help2man failed for ${PROGRAM}")
endif()
