# Generates the NDK code of the HAL interface at build time. Debian's aidl predates
# @VintfStability, so the sources are copied without that line first.
find_program(AIDL_EXECUTABLE aidl REQUIRED)

set(AIDL_SRC_ROOT ${PROJECT_SOURCE_DIR}/aidl)
set(AIDL_PKG_DIR vendor/norvo/hardware/vela)
set(AIDL_TYPES IVela IVelaCallback VelaRequestData VelaRequestParcel)
set(AIDL_GEN_DIR ${PROJECT_BINARY_DIR}/aidl-gen)

set(aidl_inputs)
set(aidl_sources)
set(aidl_headers)
foreach(type ${AIDL_TYPES})
    list(APPEND aidl_inputs ${AIDL_SRC_ROOT}/${AIDL_PKG_DIR}/${type}.aidl)
    list(APPEND aidl_sources ${AIDL_GEN_DIR}/src/${AIDL_PKG_DIR}/${type}.cpp)
    list(APPEND aidl_headers ${AIDL_GEN_DIR}/include/aidl/${AIDL_PKG_DIR}/${type}.h)
endforeach()

add_custom_command(
    OUTPUT ${aidl_sources} ${aidl_headers}
    COMMAND ${CMAKE_COMMAND} -DSRC_ROOT=${AIDL_SRC_ROOT} -DOUT_DIR=${AIDL_GEN_DIR}
            -DAIDL=${AIDL_EXECUTABLE} -DPKG_DIR=${AIDL_PKG_DIR} "-DTYPES=${AIDL_TYPES}"
            -P ${PROJECT_SOURCE_DIR}/cmake/RunAidl.cmake
    DEPENDS ${aidl_inputs} ${PROJECT_SOURCE_DIR}/cmake/RunAidl.cmake
    COMMENT "Generating NDK code for ${AIDL_PKG_DIR}"
    VERBATIM)

# The interface library, as on a device: one shared object that every user links, so that
# the binder classes and stub hooks exist once per process.
add_library(vela_aidl_ndk SHARED ${aidl_sources})
set_target_properties(vela_aidl_ndk PROPERTIES OUTPUT_NAME "vendor.norvo.hardware.vela-V1-ndk")
target_include_directories(vela_aidl_ndk PUBLIC
    $<BUILD_INTERFACE:${AIDL_GEN_DIR}/include>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/norvo-pax-client>)
# The generated readers add untrusted sizes to positions; -fwrapv keeps a hostile size from
# being undefined behaviour (the runtime then refuses the position).
target_compile_options(vela_aidl_ndk PRIVATE -w -fwrapv)
target_link_libraries(vela_aidl_ndk PUBLIC hostbinder_ndk PkgConfig::JSONCPP)
