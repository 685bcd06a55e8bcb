# What `cmake --install` delivers of the library. The folders of the tool and of the plugins install
# theirs.
include(CMakePackageConfigHelpers)
if(BUILD_SHARED_LIBS) # The installed tool finds its library wherever both are put.
  file(RELATIVE_PATH to_library ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  set(CMAKE_INSTALL_RPATH $ORIGIN/${to_library})
endif()

get_target_property(headers JURNfilter JURN_HEADERS)
foreach(header ${headers})
  cmake_path(GET header FILENAME name)
  install(FILES ${PROJECT_BINARY_DIR}/include/JURN/${name}
          DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/JURN)
endforeach()
install(TARGETS JURNfilter JURN_long_names EXPORT JURN)

# find_package(JURN CONFIG): the target file needs nothing before it, so it is the package file.
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/JURN)
set_property(TARGET JURNfilter PROPERTY EXPORT_NAME filter)
set_property(TARGET JURN_long_names PROPERTY EXPORT_NAME JURN)
install(EXPORT JURN NAMESPACE JURN:: FILE JURNConfig.cmake DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/JURNConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/JURNConfigVersion.cmake DESTINATION ${package_dir})

# The pkg-config file finds the other folders from its own, so the installed tree can be moved.
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig
           OUTPUT_VARIABLE JURN_PC_TO_PREFIX)
configure_file(cmake/JURN.pc.in JURN.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/JURN.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
