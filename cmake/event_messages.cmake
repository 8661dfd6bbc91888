# The texts that the host's event viewer shows for the agent's events, as a resource of the program.
set(messages ${CMAKE_CURRENT_SOURCE_DIR}/platform/event_messages_win32.mc)
set(messages_folder ${CMAKE_BINARY_DIR}/event_messages)
file(MAKE_DIRECTORY ${messages_folder})
add_custom_command(
    OUTPUT ${messages_folder}/event_messages.o
    COMMAND ${CMAKE_MC_COMPILER} -b -r ${messages_folder} -h ${messages_folder} ${messages}
    COMMAND ${CMAKE_RC_COMPILER} -I ${messages_folder} ${messages_folder}/event_messages_win32.rc
            ${messages_folder}/event_messages.o
    DEPENDS ${messages} VERBATIM)
add_library(event_messages OBJECT IMPORTED GLOBAL)
set_target_properties(event_messages PROPERTIES IMPORTED_OBJECTS ${messages_folder}/event_messages.o)
add_custom_target(event_messages_made DEPENDS ${messages_folder}/event_messages.o)
add_dependencies(event_messages event_messages_made)
