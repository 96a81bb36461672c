include(CMakePackageConfigHelpers)

# Installed libraries find each other beside themselves, wherever the prefix is.
set_target_properties(norvo-pax-client vela_aidl_ndk hostbinder_ndk PROPERTIES
    INSTALL_RPATH "$ORIGIN;/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android")

# The programs find the installed libraries from wherever the prefix is, and liblog where
# Debian keeps it.
foreach(program velactl vela-service)
    if(TARGET ${program})
        set_target_properties(${program} PROPERTIES INSTALL_RPATH
            "$ORIGIN/../${CMAKE_INSTALL_LIBDIR};/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android")
    endif()
endforeach()

# Consumers write either <velaHalclient.h> or <norvo-pax-client/velaHalclient.h>.
target_include_directories(norvo-pax-client INTERFACE
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)

install(TARGETS norvo-pax-client vela_aidl_ndk hostbinder_ndk
        EXPORT NorvoPaxClientTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/client/include/
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/norvo-pax-client FILES_MATCHING PATTERN "*.h")
install(DIRECTORY ${PROJECT_SOURCE_DIR}/hostbinder/include/
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/norvo-pax-client FILES_MATCHING PATTERN "*.h")
install(DIRECTORY ${AIDL_GEN_DIR}/include/
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/norvo-pax-client FILES_MATCHING PATTERN "*.h")
install(EXPORT NorvoPaxClientTargets NAMESPACE NorvoPaxClient::
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/NorvoPaxClient)

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/NorvoPaxClientConfig.cmake.in
    ${PROJECT_BINARY_DIR}/NorvoPaxClientConfig.cmake
    INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/NorvoPaxClient)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/NorvoPaxClientConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/NorvoPaxClientConfig.cmake
              ${PROJECT_BINARY_DIR}/NorvoPaxClientConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/NorvoPaxClient)

# The manifest fragments of what we serve, where the device build installs them
# (/vendor/etc/vintf/manifest); the host runtime reads them from beside its library, and the
# build tree holds a copy laid out the same way.
set(pax_vintf_fragments ${PROJECT_SOURCE_DIR}/service/vela-service.xml)
foreach(fragment ${pax_vintf_fragments})
    get_filename_component(fragment_name ${fragment} NAME)
    configure_file(${fragment} ${HOSTBINDER_BUILD_VINTF_DIR}/${fragment_name} COPYONLY)
endforeach()
install(FILES ${pax_vintf_fragments} DESTINATION ${CMAKE_INSTALL_SYSCONFDIR}/vintf/manifest)
