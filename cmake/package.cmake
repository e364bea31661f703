# SPDX-License-Identifier: MIT
# cpack: a Debian package of each component. scripts/package sets up the build that they come from:
# prefix /usr, both forms of the library, the flags that Debian builds its own packages with.
set(PLINTH_MAINTAINER "The Plinth authors <plinth@packages.invalid>" CACHE STRING
  "Who answers for the packages that cpack makes: name and address")

# What runs is named after the soname, so that two of them can be installed side by side.
set(runtime_name libplinth${plinth_soversion})
set(development_name libplinth-dev)
set(documentation_name libplinth-doc)
set(python_name python3-plinth-wire)
set(tools_name plinth-tools)
set(release 1~upstream1) # gives way to a package of Debian's own

set(components runtime development documentation python)
if(EXISTS ${PROJECT_SOURCE_DIR}/tools/CMakeLists.txt)
  list(APPEND components tools)
endif()

file(STRINGS CHANGELOG.md version_told REGEX "^## \\[" LIMIT_COUNT 1)
if(NOT version_told MATCHES "\\[${PROJECT_VERSION}\\] - 20")
  message(FATAL_ERROR "CHANGELOG.md begins with '${version_told}', and this is ${PROJECT_VERSION}")
endif()

# What each package has to hold of its own: the licence and two change logs. The one that runs also
# makes the loader look at its library, by the trigger that is there for it.
set(papers ${PROJECT_BINARY_DIR}/papers)
string(TIMESTAMP day "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(WRITE ${papers}/changelog.Debian "plinth (${PROJECT_VERSION}-${release}) unstable; urgency=medium

  * Version ${PROJECT_VERSION}. CHANGELOG.md tells what is in it.

 -- ${PLINTH_MAINTAINER}  ${day}
")
file(STRINGS LICENSE licence)
list(JOIN licence "\n " licence)
string(REPLACE " \n" " .\n" licence "${licence}")
file(WRITE ${papers}/copyright "Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/
Upstream-Name: Plinth

Files: *
Copyright: 2026 The Plinth authors
License: Expat

Files: html/*.js html/search/*.js html/tabs.css
Copyright: 1997-2020 Dimitri van Heesch
 OpenJS Foundation and other contributors
 2007 Ariel Flesler
 2011-2014 Dave Furfero
 2018 Steven Benner
 Vasil Dinkov, Vadikom Web Ltd.
License: Expat
Comment: What Doxygen puts beside the pages that it makes, with notices inside.

License: Expat
 ${licence}
")
file(WRITE ${papers}/triggers "activate-noawait ldconfig\n")
# What Python compiles comes and goes with the package.
file(WRITE ${papers}/postinst "#!/bin/sh
set -e
if command -v py3compile >/dev/null; then py3compile -p ${python_name}; fi
")
file(WRITE ${papers}/prerm "#!/bin/sh
set -e
if command -v py3clean >/dev/null; then py3clean -p ${python_name}; fi
")
file(COPY CHANGELOG.md DESTINATION ${papers})
file(RENAME ${papers}/CHANGELOG.md ${papers}/changelog)
execute_process(COMMAND gzip -9nf changelog changelog.Debian
  WORKING_DIRECTORY ${papers} COMMAND_ERROR_IS_FATAL ANY)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/CHANGELOG.md)
foreach(component IN LISTS components)
  set(folder ${CMAKE_INSTALL_DATAROOTDIR}/doc/${${component}_name})
  install(FILES ${papers}/changelog.gz ${papers}/changelog.Debian.gz ${papers}/copyright
    DESTINATION ${folder} COMPONENT ${component})
  string(TOUPPER ${component} key)
  set(CPACK_DEBIAN_${key}_PACKAGE_NAME ${${component}_name})
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_PACKAGE_CONTACT ${PLINTH_MAINTAINER})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own
set(CPACK_COMPONENTS_ALL ${components})
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE ${PROJECT_NAME})
set(CPACK_DEBIAN_PACKAGE_RELEASE ${release})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON) # a program needs this version or a later one
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}) # what the tools need of ours
# A field that cpack knows only from 3.31 on comes in as a second line of one that it knows.
set(multiarch_same "\nMulti-Arch: same")
set(multiarch_foreign "\nMulti-Arch: foreign")
set(same_version "(= ${PROJECT_VERSION}-${release})")
set(about "Containers and text, a portable binary encoding and framed messages over
TCP, tasks (threads, child processes, asynchronous calls) with events that
any event loop can wait for, and the file system.
")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs${multiarch_same})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
# Scripts of these names are not there, nor needed; but where none is named, cpack writes some that
# do the trigger's work once more.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
  ${papers}/triggers ${papers}/none/postinst ${papers}/none/postrm)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "${PROJECT_DESCRIPTION}
${about}
This package holds the shared library, which programs need to run.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel${multiarch_same})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${runtime_name} ${same_version}")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS "${documentation_name}, ${tools_name}, ${python_name}")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "${PROJECT_DESCRIPTION} (development)
${about}
This package holds the headers, the static library, and what CMake and
pkg-config need to find it.")

set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_SECTION doc${multiarch_foreign})
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_DOCUMENTATION_DESCRIPTION "${PROJECT_DESCRIPTION} (documentation)
${about}
This package holds the reference of every public name and the guide, as pages
for a browser; and pages on byte formats, on what surprises, and on why things
are as they are.")

set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python${multiarch_foreign})
set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "python3:any (>= 3.11~)")
set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA ${papers}/postinst ${papers}/prerm)
set(CPACK_DEBIAN_PYTHON_DESCRIPTION "${PROJECT_DESCRIPTION} (formats in Python)
${about}
This package holds plinth_wire, a Python module that reads and writes records,
framed messages, bit sets and checksums. It does not need the library.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils${multiarch_foreign})
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${runtime_name} ${same_version}")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "${PROJECT_DESCRIPTION} (tools)
${about}
This package holds plinth-dump, which shows captured records and messages
field by field, and plinth-run, which runs a command with a time limit.")
include(CPack)
