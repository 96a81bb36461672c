# PAX_SANITIZER_FLAGS: what every object and link of a sanitizer build gets; the
# installed-package test builds its consumers with them too, since a program linking an
# instrumented library must carry the same runtime.
if(PAX_SANITIZE STREQUAL "thread")
    set(PAX_SANITIZER_FLAGS -fsanitize=thread)
elseif(PAX_SANITIZE STREQUAL "address")
    set(PAX_SANITIZER_FLAGS -fsanitize=address,undefined -fno-sanitize-recover=undefined)
elseif(NOT PAX_SANITIZE STREQUAL "")
    message(FATAL_ERROR "PAX_SANITIZE must be empty, 'thread' or 'address'")
endif()
if(PAX_SANITIZER_FLAGS)
    add_compile_options(${PAX_SANITIZER_FLAGS} -fno-omit-frame-pointer -O1 -g)
    add_link_options(${PAX_SANITIZER_FLAGS})
endif()
