# The client library is built from one static component per subsystem; the shared library
# takes them whole, and tests link the components they exercise directly, so that they can
# reach internals that the shared library keeps hidden.
function(pax_component name dir)
    cmake_parse_arguments(C "" "" "DEPS" ${ARGN})
    file(GLOB srcs CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${dir}/*.cpp)
    if(NOT srcs)
        return()
    endif()
    add_library(${name} STATIC ${srcs})
    set_target_properties(${name} PROPERTIES CXX_VISIBILITY_PRESET hidden
                                             VISIBILITY_INLINES_HIDDEN ON)
    target_include_directories(${name}
        PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
        PRIVATE ${PROJECT_SOURCE_DIR}/${dir})
    target_compile_definitions(${name} PRIVATE PAX_BUILDING_LIBRARY)
    target_link_libraries(${name} PUBLIC ${C_DEPS} PRIVATE pax_warnings)
    set_property(GLOBAL APPEND PROPERTY PAX_COMPONENTS ${name})
endfunction()

pax_component(pax_utils utils)
pax_component(pax_halclient halclient DEPS vela_aidl_ndk android_log)
pax_component(pax_pax pax DEPS vela_aidl_ndk android_log android_cutils)
set(wrapper_deps android_log)
foreach(dep pax_pax pax_utils)
    if(TARGET ${dep})
        list(APPEND wrapper_deps ${dep})
    endif()
endforeach()
pax_component(pax_wrapper wrapper DEPS ${wrapper_deps})

get_property(components GLOBAL PROPERTY PAX_COMPONENTS)
add_library(norvo-pax-client SHARED ${PROJECT_SOURCE_DIR}/cmake/empty.cpp)
add_library(NorvoPaxClient::client ALIAS norvo-pax-client)
set_target_properties(norvo-pax-client PROPERTIES
    CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON
    VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
target_include_directories(norvo-pax-client PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/norvo-pax-client>)
target_link_libraries(norvo-pax-client
    PUBLIC vela_aidl_ndk hostbinder_ndk
    PRIVATE "$<LINK_LIBRARY:WHOLE_ARCHIVE,${components}>" android_log android_cutils)
target_link_options(norvo-pax-client PRIVATE "LINKER:--no-undefined")
