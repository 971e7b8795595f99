# Debian packages of the install tree, one per install component, made by
# CPack (scripts/package configures with -DHDSML_DEBIAN_PACKAGES=ON and
# -DCMAKE_INSTALL_PREFIX=/usr, then runs cpack and lintian):
#   libhdsml0     component runtime  the shared library (named for its SONAME)
#   libhdsml-dev  component dev      headers, CMake package files, hdsml.pc
#   hdsml-tools   component tools    hds-replay, hds-grid, hds-extract-frames, hds-facade-layout
#   libhdsml-jni  component jni      the Java binding's JNI library (when Java is built)
#   libhdsml-java component java     hdsml.jar, the Java binding's API (when Java is built)
# Another package is one more install component and one more
# hdsml_debian_package() call below.

set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_PACKAGE_NAME hdsml)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "hdsml")
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "hdsml maintainers <maintainers@users.noreply.c-seed-655dd422.example>")
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# Dependencies on other packages' libraries come from the binaries, through
# dpkg-shlibdeps. The tools' own libhdsml.so.0 is not installed yet when the
# packages are made; it is found in the build tree, and the tools package
# depends on libhdsml0 of the same version through the component dependency.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
# Shipped binaries carry no debug information; the build tree's copies keep
# it for abidw (scripts/abi).
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)

# The packages' names, one a line, for scripts/package to check its output.
set(hdsml_debian_doc_dir ${PROJECT_BINARY_DIR}/debian-doc)
file(REMOVE ${hdsml_debian_doc_dir}/packages.txt)
string(TIMESTAMP hdsml_debian_date "%a, %d %b %Y %H:%M:%S +0000" UTC)

# One package: COMPONENT's files plus Debian's copyright and changelog under
# /usr/share/doc/NAME/.
#   hdsml_debian_package(COMPONENT NAME NAME SECTION SECTION SUMMARY "one line"
#     DESCRIPTION "paragraph" [DEPENDS component...] [PACKAGE_DEPENDS "pkg, pkg"]
#     [MULTI_ARCH same])
function(hdsml_debian_package component)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "NAME;SECTION;SUMMARY;DESCRIPTION;PACKAGE_DEPENDS;MULTI_ARCH"
    "DEPENDS")
  string(TOUPPER ${component} up)
  set_property(GLOBAL APPEND PROPERTY HDSML_DEBIAN_COMPONENTS ${component})
  file(APPEND ${hdsml_debian_doc_dir}/packages.txt "${arg_NAME}\n")
  set(CPACK_DEBIAN_${up}_PACKAGE_NAME ${arg_NAME} PARENT_SCOPE)
  set(CPACK_DEBIAN_${up}_PACKAGE_SECTION ${arg_SECTION} PARENT_SCOPE)
  set(CPACK_COMPONENT_${up}_DESCRIPTION "${arg_SUMMARY}\n${arg_DESCRIPTION}" PARENT_SCOPE)
  set(CPACK_COMPONENT_${up}_DEPENDS ${arg_DEPENDS} PARENT_SCOPE)
  set(CPACK_DEBIAN_${up}_PACKAGE_DEPENDS "${arg_PACKAGE_DEPENDS}" PARENT_SCOPE)
  if(arg_MULTI_ARCH)
    set(CPACK_DEBIAN_${up}_PACKAGE_MULTIARCH ${arg_MULTI_ARCH} PARENT_SCOPE)
  endif()

  set(doc ${hdsml_debian_doc_dir}/${arg_NAME})
  # Compressed as Debian wants it: the best level, no name or time inside.
  configure_file(${PROJECT_SOURCE_DIR}/cmake/debian/changelog.in ${doc}/changelog.Debian @ONLY)
  execute_process(COMMAND gzip -9nf ${doc}/changelog.Debian COMMAND_ERROR_IS_FATAL ANY)
  install(FILES ${PROJECT_SOURCE_DIR}/cmake/debian/copyright ${doc}/changelog.Debian.gz
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${arg_NAME} COMPONENT ${component})
  # lintian's warnings that stay, each with the reason (see scripts/package).
  set(overrides ${PROJECT_SOURCE_DIR}/cmake/debian/${arg_NAME}.lintian-overrides)
  if(EXISTS ${overrides})
    install(FILES ${overrides} DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides
      RENAME ${arg_NAME} COMPONENT ${component})
  endif()
endfunction()

# Descriptions: a summary line, then paragraphs; CPack indents them and turns
# empty lines into Debian's " .".
set(hdsml_about "hdsml decides, from a camera's preview frames, whether something moves in
front of the device and when the scene has been empty long enough to call it
absent.")

hdsml_debian_package(runtime NAME libhdsml${PROJECT_VERSION_MAJOR} SECTION libs MULTI_ARCH same
  SUMMARY "motion and absence detection on camera frames - shared library"
  DESCRIPTION "${hdsml_about}\n\nThis package holds the shared library.")
hdsml_debian_package(dev NAME libhdsml-dev SECTION libdevel MULTI_ARCH same DEPENDS runtime
  # OpenCV's CMake package files and opencv4.pc, which hdsml's find
  # dependencies and hdsml.pc's Requires need, are only in libopencv-dev.
  PACKAGE_DEPENDS "libopencv-dev"
  SUMMARY "motion and absence detection on camera frames - development files"
  DESCRIPTION "${hdsml_about}\n\nThis package holds the public headers, the CMake package
(find_package(hdsml), target hdsml::hdsml) and hdsml.pc for pkg-config.")
hdsml_debian_package(tools NAME hdsml-tools SECTION video DEPENDS runtime
  SUMMARY "motion and absence detection on camera frames - replay tools"
  DESCRIPTION "${hdsml_about}\n\nThis package holds hds-replay, which feeds recorded video through the
library as a camera application would, hds-grid, which compares settings
side by side over clips, hds-extract-frames and hds-facade-layout.")
if(TARGET hdsml_jni AND TARGET hdsml_java)
  hdsml_debian_package(jni NAME libhdsml-jni SECTION java MULTI_ARCH same DEPENDS runtime
    SUMMARY "motion and absence detection on camera frames - JNI library"
    DESCRIPTION "${hdsml_about}\n\nThis package holds libhdsml_jni.so, the native part of the Java
binding, in the folder Debian's Java virtual machines search.")
  # The jar is the same on every machine; its native part is not.
  set(CPACK_DEBIAN_JAVA_PACKAGE_ARCHITECTURE all)
  hdsml_debian_package(java NAME libhdsml-java SECTION java DEPENDS jni
    SUMMARY "motion and absence detection on camera frames - Java binding"
    DESCRIPTION "${hdsml_about}\n\nThis package holds hdsml.jar (package org.hdsml, Java 8 bytecode),
the binding that Java and Kotlin applications call.")
endif()

# ldconfig runs from dpkg's trigger, not from maintainer scripts: CPack would
# write postinst and postrm calling it unless the control files name their own;
# the names given here do not exist, so the package has no such scripts.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
  ${PROJECT_SOURCE_DIR}/cmake/debian/runtime/triggers
  ${PROJECT_BINARY_DIR}/no-such-file/postinst ${PROJECT_BINARY_DIR}/no-such-file/postrm)

get_property(CPACK_COMPONENTS_ALL GLOBAL PROPERTY HDSML_DEBIAN_COMPONENTS)
include(CPack)
