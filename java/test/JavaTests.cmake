# The binding's JUnit 5 tests on the JVM that built them, one CTest test per
# test class (label "java"), with the frames of data/vtest.avi and hds-replay's
# report on them as a fixture. JUnit comes from Debian's junit5.
find_file(HDSML_JUNIT_CONSOLE junit-platform-console-standalone.jar PATHS /usr/share/java)
if(NOT HDSML_JUNIT_CONSOLE)
  message(WARNING "Java tests not built: no JUnit 5 console launcher (install junit5)")
  return()
endif()

if(HDSML_SANITIZE MATCHES "thread")
  # ThreadSanitizer cannot see the JVM's synchronisation: Java locks, thread
  # start and join all happen in the uninstrumented JVM, so every hand-off
  # through a Java lock (detect and close, say) reads as a data race.
  message(STATUS "Java tests not run under ThreadSanitizer: it cannot see the JVM's locks")
  return()
endif()

add_library(hdsml_jni_test_hooks SHARED test/native/TestHooks.cpp)
target_include_directories(hdsml_jni_test_hooks PRIVATE ${PROJECT_SOURCE_DIR})
target_include_directories(hdsml_jni_test_hooks SYSTEM PRIVATE ${JNI_INCLUDE_DIRS}
  ${OpenCV_INCLUDE_DIRS})
target_link_libraries(hdsml_jni_test_hooks PRIVATE hdsml hdsml_build_flags opencv_imgproc)

file(GLOB HDSML_JAVA_TEST_SOURCES CONFIGURE_DEPENDS
  ${CMAKE_CURRENT_SOURCE_DIR}/test/org/hdsml/*.java)
add_jar(hdsml_java_tests SOURCES ${HDSML_JAVA_TEST_SOURCES}
  INCLUDE_JARS hdsml_java ${HDSML_JUNIT_CONSOLE})
add_dependencies(hdsml_java_tests hdsml_jni hdsml_jni_test_hooks)

# The first 60 frames of vtest.avi (people walking) as PNGs and hds-replay's CSV
# on them in lockstep: DETECT_ABSENCE from frame 40, then 60 still frames.
set(java_frames ${CMAKE_CURRENT_BINARY_DIR}/vtest-frames)
if(TARGET hds-extract-frames AND TARGET hds-replay)
  add_test(NAME java.vtest_frames COMMAND ${CMAKE_COMMAND}
    -DVIDEO=${PROJECT_SOURCE_DIR}/data/vtest.avi -DOUT=${java_frames}
    -DEXTRACT=$<TARGET_FILE:hds-extract-frames> -DREPLAY=$<TARGET_FILE:hds-replay>
    -DCONFIG=${PROJECT_SOURCE_DIR}/tools/hdsml-default.json
    -P ${CMAKE_CURRENT_SOURCE_DIR}/test/PrepareFrames.cmake)
  set_tests_properties(java.vtest_frames PROPERTIES FIXTURES_SETUP hdsml_java_frames
    LABELS java TIMEOUT 300)
endif()

set(java_test_env "")
if(HDSML_SANITIZE MATCHES "address")
  # The JVM is not built with AddressSanitizer, so its runtime is preloaded,
  # with the C++ runtime beside it: the java launcher does not load that one,
  # and ASan looks for the real __cxa_throw as it starts. The JVM's own SIGSEGV
  # handling (null checks, safepoints) must stay the JVM's, and what the JVM
  # still holds at exit is no leak of ours.
  execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=libasan.so
    OUTPUT_VARIABLE libasan OUTPUT_STRIP_TRAILING_WHITESPACE)
  execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=libstdc++.so
    OUTPUT_VARIABLE libstdcxx OUTPUT_STRIP_TRAILING_WHITESPACE)
  list(APPEND java_test_env "LD_PRELOAD=${libasan}:${libstdcxx}"
    "ASAN_OPTIONS=handle_segv=0:allow_user_segv_handler=1:detect_leaks=0")
endif()

foreach(class PresenceDetectorTest PauseResumeTest LogListenerTest RealFramesTest)
  add_test(NAME java.${class} COMMAND ${Java_JAVA_EXECUTABLE} -Xcheck:jni
    -Djava.library.path=${CMAKE_BINARY_DIR}
    -Dorg.hdsml.test.hooks=$<TARGET_FILE:hdsml_jni_test_hooks>
    -Dorg.hdsml.test.frames=${java_frames}
    -Dorg.hdsml.test.config=${PROJECT_SOURCE_DIR}/tools/hdsml-default.json
    -jar ${HDSML_JUNIT_CONSOLE} --disable-banner --disable-ansi-colors --details=tree
    --fail-if-no-tests
    --class-path $<TARGET_PROPERTY:hdsml_java_tests,JAR_FILE>:$<TARGET_PROPERTY:hdsml_java,JAR_FILE>
    --select-class org.hdsml.${class})
  # -Xcheck:jni reports misuse of JNI as warnings on an otherwise passing run.
  set_tests_properties(java.${class} PROPERTIES LABELS java TIMEOUT 300
    FAIL_REGULAR_EXPRESSION "WARNING in native method|FATAL ERROR in native method"
    ENVIRONMENT "${java_test_env}")
endforeach()
# The absence threshold hds-replay was given for the fixture's CSV.
set_tests_properties(java.RealFramesTest PROPERTIES FIXTURES_REQUIRED hdsml_java_frames
  ENVIRONMENT "${java_test_env};PERSIST_HDS_CV_ABSENCE=2000")
