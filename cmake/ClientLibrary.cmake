# The client library is built from one component per subsystem; the shared library takes all
# their objects, and tests link the static components they exercise directly, so that they can
# reach internals that the shared library keeps hidden.
function(pax_component name dir)
    cmake_parse_arguments(C "" "" "DEPS" ${ARGN})
    file(GLOB srcs CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${dir}/*.cpp)
    if(NOT srcs)
        return()
    endif()
    # Compiled once: the objects go both into the static component and the shared library.
    add_library(${name}_obj OBJECT ${srcs})
    set_target_properties(${name}_obj PROPERTIES CXX_VISIBILITY_PRESET hidden
                                                 VISIBILITY_INLINES_HIDDEN ON)
    target_include_directories(${name}_obj
        PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
        PRIVATE ${PROJECT_SOURCE_DIR}/${dir})
    target_compile_definitions(${name}_obj PRIVATE PAX_BUILDING_LIBRARY)
    target_link_libraries(${name}_obj PUBLIC ${C_DEPS} PRIVATE pax_warnings)
    add_library(${name} STATIC $<TARGET_OBJECTS:${name}_obj>)
    target_link_libraries(${name} PUBLIC ${name}_obj ${C_DEPS})
    set_property(GLOBAL APPEND PROPERTY PAX_COMPONENTS ${name}_obj)
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
set(component_objects)
foreach(c ${components})
    list(APPEND component_objects $<TARGET_OBJECTS:${c}>)
endforeach()
add_library(norvo-pax-client SHARED ${PROJECT_SOURCE_DIR}/cmake/empty.cpp ${component_objects})
add_library(NorvoPaxClient::client ALIAS norvo-pax-client)
set_target_properties(norvo-pax-client PROPERTIES
    CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON
    VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
target_include_directories(norvo-pax-client PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/norvo-pax-client>)
target_link_libraries(norvo-pax-client
    PUBLIC vela_aidl_ndk hostbinder_ndk
    PRIVATE android_log android_cutils PkgConfig::JSONCPP)
target_link_options(norvo-pax-client PRIVATE "LINKER:--no-undefined")
