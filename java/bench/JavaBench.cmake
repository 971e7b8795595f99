# The binding's benchmark (scripts/bench runs it): detect() through Java
# against detect() from C++ on the same facade and frames, with the counting
# allocator of hdsml_bench preloaded into the JVM.
find_package(OpenCV REQUIRED COMPONENTS imgproc videoio)

add_library(hdsml_jni_bench SHARED bench/native/BenchHooks.cpp
  ${PROJECT_SOURCE_DIR}/bench/BenchFrames.cpp)
target_include_directories(hdsml_jni_bench PRIVATE ${PROJECT_SOURCE_DIR})
target_include_directories(hdsml_jni_bench SYSTEM PRIVATE ${JNI_INCLUDE_DIRS}
  ${OpenCV_INCLUDE_DIRS})
target_link_libraries(hdsml_jni_bench PRIVATE
  hdsml hdsml_build_flags opencv_imgproc opencv_videoio ${CMAKE_DL_LIBS})
target_compile_definitions(hdsml_jni_bench PRIVATE
  HDSML_BENCH_VIDEO="${PROJECT_SOURCE_DIR}/data/vtest.avi")

# Preloaded, its allocation functions stand in for the C library's in the whole
# process, so they must be exported. Its cv::findContours finds OpenCV's own as
# the next definition in the global scope: OpenCV must be loaded with it, as a
# dependency the linker would otherwise drop (the JNI library's copy is local to
# it).
add_library(hdsml_alloc_preload SHARED ${PROJECT_SOURCE_DIR}/bench/AllocationCounter.cpp
  bench/native/AllocationExport.cpp)
target_include_directories(hdsml_alloc_preload PRIVATE ${PROJECT_SOURCE_DIR})
target_include_directories(hdsml_alloc_preload SYSTEM PRIVATE ${OpenCV_INCLUDE_DIRS})
target_link_libraries(hdsml_alloc_preload PRIVATE hdsml_build_flags opencv_imgproc
  ${CMAKE_DL_LIBS})
target_link_options(hdsml_alloc_preload PRIVATE -Wl,--no-as-needed)
set_target_properties(hdsml_alloc_preload PROPERTIES CXX_VISIBILITY_PRESET default)

file(GLOB HDSML_JAVA_BENCH_SOURCES CONFIGURE_DEPENDS
  ${CMAKE_CURRENT_SOURCE_DIR}/bench/org/hdsml/*.java)
add_jar(hdsml_java_bench SOURCES ${HDSML_JAVA_BENCH_SOURCES} INCLUDE_JARS hdsml_java
  OUTPUT_NAME hdsml-bench OUTPUT_DIR ${CMAKE_BINARY_DIR})
add_dependencies(hdsml_java_bench hdsml_jni hdsml_jni_bench hdsml_alloc_preload)

# A few calls each way so that it cannot rot, and no call may allocate.
add_test(NAME java.bench_smoke COMMAND ${Java_JAVA_EXECUTABLE}
  -Djava.library.path=${CMAKE_BINARY_DIR}
  -Dorg.hdsml.bench.hooks=$<TARGET_FILE:hdsml_jni_bench>
  -cp $<TARGET_PROPERTY:hdsml_java,JAR_FILE>:$<TARGET_PROPERTY:hdsml_java_bench,JAR_FILE>
  org.hdsml.DetectBenchmark --config=${PROJECT_SOURCE_DIR}/tools/hdsml-default.json
  --rounds=2 --calls=50 --warmup=200 --frames=8 --check-allocations)
set_tests_properties(java.bench_smoke PROPERTIES LABELS java TIMEOUT 120
  ENVIRONMENT "LD_PRELOAD=$<TARGET_FILE:hdsml_alloc_preload>")
