# agent_room(NAME [PATH folder] MODULES names... HOSTED names... [HOSTED_LINUX names...] [HOSTED_WIN32 names...]
#     NEEDS rooms...)
#
# A room is one static library made of the portable files of its folder (MODULES) and the answers of the
# host that is built for (HOSTED: name_linux.cpp or name_win32.cpp, HOSTED_LINUX and HOSTED_WIN32: what that host
# alone has). It links only the rooms that it needs, so that an upward call does not link.
function(agent_room NAME)
    cmake_parse_arguments(ROOM "" "PATH" "MODULES;HOSTED;HOSTED_LINUX;HOSTED_WIN32;NEEDS" ${ARGN})
    if(NOT ROOM_PATH)
        set(ROOM_PATH ${NAME})
    endif()
    set(files)
    foreach(module ${ROOM_MODULES})
        list(APPEND files ${ROOM_PATH}/${module}.cpp)
    endforeach()
    if(WIN32)
        list(APPEND ROOM_HOSTED ${ROOM_HOSTED_WIN32})
    else()
        list(APPEND ROOM_HOSTED ${ROOM_HOSTED_LINUX})
    endif()
    foreach(module ${ROOM_HOSTED})
        list(APPEND files ${ROOM_PATH}/${module}_${TN_HOST}.cpp)
    endforeach()
    add_library(room_${NAME} STATIC ${files})
    target_include_directories(room_${NAME} PUBLIC ${CMAKE_SOURCE_DIR}/agent)
    foreach(room ${ROOM_NEEDS})
        target_link_libraries(room_${NAME} PUBLIC room_${room})
    endforeach()
endfunction()
