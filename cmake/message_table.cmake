# message_table(NAME FILE): an object library with the message table that FILE describes, as a resource of what links it.
# Its files are named after FILE, in a folder named NAME.
function(message_table NAME FILE)
    get_filename_component(messages ${FILE} ABSOLUTE)
    get_filename_component(stem ${FILE} NAME_WE)
    set(folder ${CMAKE_BINARY_DIR}/${NAME})
    file(MAKE_DIRECTORY ${folder})
    add_custom_command(
        OUTPUT ${folder}/${NAME}.o
        COMMAND ${CMAKE_MC_COMPILER} -b -r ${folder} -h ${folder} ${messages}
        COMMAND ${CMAKE_RC_COMPILER} -I ${folder} ${folder}/${stem}.rc ${folder}/${NAME}.o
        DEPENDS ${messages} VERBATIM)
    add_library(${NAME} OBJECT IMPORTED GLOBAL)
    set_target_properties(${NAME} PROPERTIES IMPORTED_OBJECTS ${folder}/${NAME}.o)
    add_custom_target(${NAME}_made DEPENDS ${folder}/${NAME}.o)
    add_dependencies(${NAME} ${NAME}_made)
endfunction()
