# SPDX-License-Identifier: MIT
# cmake --install: headers, library, package files for CMake and pkg-config, documents. Each belongs
# to a component: `runtime` is what a program needs to run, `development` what its developer needs
# besides, `documentation` what there is to read. cmake/package.cmake makes a package of each.
include(CMakePackageConfigHelpers)

# The public headers are inc/*.h and those of outside/ that they include, directly or through
# others. The list is found by reading the #include lines; a header of outside/ that only our own
# sources need stays at home.
file(GLOB public_headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/inc/*.h)
set(unread ${public_headers})
set(ground_headers "")
while(unread)
  list(POP_FRONT unread header)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${header})
  file(STRINGS ${header} lines REGEX "^#[ ]*include \"outside/")
  foreach(line IN LISTS lines)
    string(REGEX REPLACE "^[^\"]*\"([^\"]*)\".*$" "\\1" name "${line}")
    if(NOT name IN_LIST ground_headers)
      list(APPEND ground_headers ${name})
      list(APPEND unread ${PROJECT_SOURCE_DIR}/${name})
    endif()
  endforeach()
endwhile()

set(include_folder ${CMAKE_INSTALL_INCLUDEDIR}/plinth)
install(FILES ${public_headers} DESTINATION ${include_folder} COMPONENT development)
foreach(name IN LISTS ground_headers)
  get_filename_component(folder ${name} DIRECTORY)
  install(FILES ${PROJECT_SOURCE_DIR}/${name} DESTINATION ${include_folder}/${folder}
    COMPONENT development)
endforeach()

# The harness for side effects, for anybody's test suite. It needs nothing of the library.
foreach(name IN ITEMS hostpicture.h hostlistener.h)
  install(FILES ${PROJECT_SOURCE_DIR}/testing/${name} DESTINATION ${include_folder}/testing
    COMPONENT development)
endforeach()

set(libraries plinth)
if(TARGET plinth_static)
  list(APPEND libraries plinth_static)
endif()
install(TARGETS ${libraries} EXPORT plinthTargets
  LIBRARY COMPONENT runtime NAMELINK_COMPONENT development
  ARCHIVE COMPONENT development)

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/plinth)
install(EXPORT plinthTargets NAMESPACE plinth:: DESTINATION ${package_folder}
  COMPONENT development)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/plinthConfig.cmake.in
  ${PROJECT_BINARY_DIR}/plinthConfig.cmake INSTALL_DESTINATION ${package_folder})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/plinthConfigVersion.cmake
  COMPATIBILITY ${plinth_compatibility})
install(FILES ${PROJECT_BINARY_DIR}/plinthConfig.cmake ${PROJECT_BINARY_DIR}/plinthConfigVersion.cmake
  DESTINATION ${package_folder} COMPONENT development)

set(pc_folder ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH pc_to_prefix /${pc_folder} /)
configure_file(${CMAKE_CURRENT_LIST_DIR}/plinth.pc.in ${PROJECT_BINARY_DIR}/plinth.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/plinth.pc DESTINATION ${pc_folder} COMPONENT development)

# The formats in Python: one module. Python looks into no folder of every prefix, so it lies where the
# library has its own; a package puts it where Debian's Python looks.
set(PLINTH_PYTHON_FOLDER ${CMAKE_INSTALL_DATADIR}/plinth/python CACHE STRING
  "Where cmake --install puts plinth_wire.py")
install(FILES python/plinth_wire.py DESTINATION ${PLINTH_PYTHON_FOLDER} COMPONENT python)

# The reference as pages for a browser is made by scripts/docs, and installed if it has been made.
install(FILES README.md CHANGELOG.md CONTRIBUTING.md SECURITY.md THIRD-PARTY-NOTICES.md LICENSE
  DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documentation)
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documentation
  FILES_MATCHING PATTERN "*.md" PATTERN "*.svg" PATTERN "*.png" PATTERN reference EXCLUDE)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/build/docs/html DESTINATION ${CMAKE_INSTALL_DOCDIR}
  COMPONENT documentation OPTIONAL)
