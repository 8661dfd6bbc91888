# Warnings, hardening and sanitizers, the same for every target.
add_compile_options(-Wall -Wextra -Wshadow -Wconversion -Wformat=2 -Wno-missing-field-initializers -Werror)

if(TN_FUZZ)
    add_compile_options(-fsanitize=address,undefined,fuzzer-no-link -fno-sanitize-recover=undefined -O1 -g)
    add_link_options(-fsanitize=address,undefined)
elseif(TN_SANITIZE)
    add_compile_options(-fsanitize=${TN_SANITIZE} -fno-sanitize-recover=undefined -fno-omit-frame-pointer -O1)
    add_link_options(-fsanitize=${TN_SANITIZE})
else()
    add_compile_options(-fstack-protector-strong -ffunction-sections -fdata-sections)
    add_compile_definitions($<$<NOT:$<CONFIG:Debug>>:_FORTIFY_SOURCE=2>)
    add_link_options(-Wl,--gc-sections)
    if(WIN32)
        add_link_options(-static -fstack-protector-strong -Wl,--dynamicbase,--nxcompat,--high-entropy-va)
    else()
        add_link_options(-Wl,-z,relro,-z,now -pie)
    endif()
endif()

if(WIN32)
    add_compile_definitions(__USE_MINGW_ANSI_STDIO=1) # the formats of the C standard
endif()
