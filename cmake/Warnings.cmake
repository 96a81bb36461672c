# Warnings for our own targets (generated code is compiled with fewer).
add_library(pax_warnings INTERFACE)
target_compile_options(pax_warnings INTERFACE
    -Wall -Wextra -Wno-unused-parameter $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>
    $<$<BOOL:${PAX_WERROR}>:-Werror>)
