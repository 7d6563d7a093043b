# The help pages of help/ compiled into velmorahelp.chm beside the program, with chmcmd of the
# Free Pascal utilities. A machine without chmcmd still builds the program, without the help file.
find_program(CHMCMD_PROGRAM chmcmd)
file(GLOB VELMORA_HELP_SOURCES CONFIGURE_DEPENDS
  ${CMAKE_SOURCE_DIR}/help/*.html ${CMAKE_SOURCE_DIR}/help/*.css
  ${CMAKE_SOURCE_DIR}/help/*.hhp ${CMAKE_SOURCE_DIR}/help/*.hhc ${CMAKE_SOURCE_DIR}/help/*.hhk)
set(VELMORA_HELP_FILE ${CMAKE_BINARY_DIR}/velmorahelp.chm)
if(CHMCMD_PROGRAM)
  set(stage ${CMAKE_BINARY_DIR}/help-pages)
  add_custom_command(OUTPUT ${VELMORA_HELP_FILE}
    COMMAND ${CMAKE_COMMAND} -E rm -rf ${stage}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${stage}
    COMMAND ${CMAKE_COMMAND} -E copy ${VELMORA_HELP_SOURCES} ${stage}
    COMMAND ${CMAKE_COMMAND} -E chdir ${stage} ${CHMCMD_PROGRAM} --verbosity 0 velmorahelp.hhp
    COMMAND ${CMAKE_COMMAND} -E copy ${stage}/velmorahelp.chm ${VELMORA_HELP_FILE}
    DEPENDS ${VELMORA_HELP_SOURCES}
    COMMENT "Compiling the help file velmorahelp.chm"
    VERBATIM)
  add_custom_target(velmorahelp ALL DEPENDS ${VELMORA_HELP_FILE})
else()
  message(STATUS "chmcmd not found: the help file velmorahelp.chm is not built")
  add_custom_target(velmorahelp)
endif()
add_dependencies(velmora velmorahelp)
