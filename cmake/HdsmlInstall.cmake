# The install tree: `cmake --install build --prefix P` gives
#   P/lib*/libhdsml.so.0.1.0, libhdsml.so.0       (component runtime)
#   P/lib*/libhdsml.so, P/include/hdsml/...,      (component dev)
#     P/lib*/cmake/hdsml/, P/lib*/pkgconfig/hdsml.pc
#   P/bin/hds-*, P/share/hdsml/hdsml-default.json and hdsml-guarded.json (component
#   tools, tools/)
# Nothing in it names the build machine's paths: the CMake package finds its
# dependencies with find_dependency, hdsml.pc finds its prefix from its own
# place, and the programs find the library relative to themselves, so the
# tree works wherever it is copied. Each component becomes one Debian package
# (cmake/HdsmlPackaging.cmake).

# The headers a consumer compiles against: the facade, the metadata record,
# the classes the library exports for other code to link against, and what
# those include (KernelPath.h, RecyclingAllocator.h). The rest (the kernels,
# the block rules, destride's kernel choice, the configuration reader) is
# internal and stays in the source tree. Consumers include them as the
# project's own code does: #include "wrapper/PresenceDetectorWrapper.h", with
# P/include/hdsml on the include path.
set(HDSML_PUBLIC_HEADERS
  wrapper/PresenceDetectorWrapper.h
  client/camera_metadata.h
  client/HDSMLClient.h
  frames/Buffer.h
  frames/FrameData.h
  frames/KernelPath.h
  frames/MemoryPool.h
  frames/RecyclingAllocator.h
  frames/Timer.h
  motion/FrameDiff.h
  motion/FrameDiffLowLight.h
  motion/MotionDiff.h
  motion/imageAlgoRunner.h
  motion/motionDetector.h
  motion/vantorData.h
  conditioning/Filter.h
  conditioning/LightEstimator.h
  diagnostics/HDSML_Logger.h
  diagnostics/LogSink.h)

set(HDSML_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/hdsml)

install(TARGETS hdsml EXPORT hdsmlTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev)
foreach(header ${HDSML_PUBLIC_HEADERS})
  get_filename_component(dir ${header} DIRECTORY)
  install(FILES ${PROJECT_SOURCE_DIR}/${header}
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/hdsml/${dir} COMPONENT dev)
endforeach()
install(FILES ${PROJECT_BINARY_DIR}/hdsml_export.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/hdsml COMPONENT dev)

install(EXPORT hdsmlTargets NAMESPACE hdsml:: DESTINATION ${HDSML_CMAKE_DIR} COMPONENT dev)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/hdsmlConfig.cmake.in
  ${PROJECT_BINARY_DIR}/hdsmlConfig.cmake
  INSTALL_DESTINATION ${HDSML_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/hdsmlConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/hdsmlConfig.cmake ${PROJECT_BINARY_DIR}/hdsmlConfigVersion.cmake
  DESTINATION ${HDSML_CMAKE_DIR} COMPONENT dev)

# hdsml.pc sits in P/lib*/pkgconfig and names its prefix relative to itself.
set(HDSML_PC_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH HDSML_PC_PREFIX ${CMAKE_INSTALL_PREFIX}/${HDSML_PC_DIR} ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" HDSML_PC_PREFIX "${HDSML_PC_PREFIX}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/hdsml.pc.in ${PROJECT_BINARY_DIR}/hdsml.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/hdsml.pc DESTINATION ${HDSML_PC_DIR} COMPONENT dev)

# Installs programs of the tools package. Their run path finds the library
# from where they are ($ORIGIN/../lib/...), so an installed tree can be moved.
function(hdsml_install_programs)
  file(RELATIVE_PATH libdir_from_bindir ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  set_target_properties(${ARGN} PROPERTIES INSTALL_RPATH "$ORIGIN/${libdir_from_bindir}")
  install(TARGETS ${ARGN} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
endfunction()
