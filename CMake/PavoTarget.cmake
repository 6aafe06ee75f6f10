# The only ways in which a target is made. They carry the architecture:
#
#   pavo_framework(Name …)  a C framework of the platform, as Frameworks/<Name>/include and …/src
#   pavo_face(Name …)       a C++ face of an Objective-C framework, as Platform/<Name>/*.h, …/linux and …/mac
#   pavo_product(Name …)    a product module: sees headers of faces and frameworks, links none of them
#   pavo_test(Name …)       a GoogleTest program; names the implementations, or the doubles, that it links
#   pavo_test_library(Name …)  what several such programs have in common
#   pavo_check_headers(Name …)  compiles each header of a framework alone, as C and as C++
#
# Every framework and face is two targets: <Name>_headers (what the product may see) and <Name> (what
# implements it here). A product module depends on the first kind only, so the final link decides
# whether it runs on the real thing or on a test's double.
#
# For macOS the system has the C frameworks; of a face the files named after MAC are built.

function(pavo_defaults target)
  target_compile_features(${target} PUBLIC cxx_std_20)
  set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF C_EXTENSIONS OFF POSITION_INDEPENDENT_CODE ON)
  target_compile_options(${target} PRIVATE
    -ffile-prefix-map=${PROJECT_SOURCE_DIR}/= -Wall -Wextra -Wshadow
    $<$<BOOL:${PAVO_WARNINGS_AS_ERRORS}>:-Werror>)
  if(APPLE)
    # Objects of dispatch are plain pointers in every file, as in C++, so functions that take them keep one
    # name.
    target_compile_definitions(${target} PRIVATE OS_OBJECT_USE_OBJC=0)
    target_compile_options(${target} PRIVATE $<$<COMPILE_LANGUAGE:OBJCXX>:-fobjc-arc -fblocks
      -Wprotocol -Wundeclared-selector -Warc-repeated-use-of-weak>)
    set_target_properties(${target} PROPERTIES
      OBJCXX_STANDARD 20 OBJCXX_STANDARD_REQUIRED ON OBJCXX_EXTENSIONS OFF)
  endif()
  if(PAVO_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=${PAVO_SANITIZE} -fno-omit-frame-pointer)
    target_link_options(${target} PUBLIC -fsanitize=${PAVO_SANITIZE})
  endif()
endfunction()

# The headers of the named frameworks and faces.
function(pavo_use_headers target scope)
  foreach(name ${ARGN})
    target_link_libraries(${target} ${scope} ${name}_headers)
  endforeach()
endfunction()

function(pavo_framework name)
  cmake_parse_arguments(arg "" "" "SOURCES;USES;LIBS" ${ARGN})
  add_library(${name}_headers INTERFACE)
  pavo_use_headers(${name}_headers INTERFACE ${arg_USES})
  if(APPLE)
    return()
  endif()
  target_include_directories(${name}_headers INTERFACE ${CMAKE_CURRENT_SOURCE_DIR}/include)
  add_library(${name} STATIC ${arg_SOURCES})
  target_link_libraries(${name} PUBLIC ${name}_headers Support ${arg_USES} PRIVATE ${arg_LIBS})
  target_include_directories(${name} PRIVATE
    ${CMAKE_CURRENT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/Frameworks/CoreFoundation/private)
  pavo_defaults(${name})
  set_property(GLOBAL APPEND PROPERTY PAVO_PLATFORM_LIBRARIES ${name})
  set_property(GLOBAL APPEND PROPERTY PAVO_PLATFORM_EXTERNALS ${arg_LIBS})
endfunction()

# SOURCES and LIBS are Linux's.
function(pavo_face name)
  cmake_parse_arguments(arg "" "" "SOURCES;MAC;USES;LIBS" ${ARGN})
  add_library(${name}_headers INTERFACE)
  target_include_directories(${name}_headers INTERFACE ${PROJECT_SOURCE_DIR})
  pavo_use_headers(${name}_headers INTERFACE Support ${arg_USES})
  if(APPLE)
    add_library(${name} OBJECT ${arg_MAC})
    target_link_libraries(${name} PUBLIC ${name}_headers)
    pavo_defaults(${name})
    return()
  endif()
  add_library(${name} STATIC ${arg_SOURCES})
  target_link_libraries(${name} PUBLIC ${name}_headers Support ${arg_USES} PRIVATE ${arg_LIBS})
  pavo_defaults(${name})
  set_property(GLOBAL APPEND PROPERTY PAVO_PLATFORM_LIBRARIES ${name})
  set_property(GLOBAL APPEND PROPERTY PAVO_PLATFORM_EXTERNALS ${arg_LIBS})
endfunction()

function(pavo_product name)
  cmake_parse_arguments(arg "" "" "SOURCES;MODULES;USES" ${ARGN})
  add_library(${name} STATIC ${arg_SOURCES})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PUBLIC ${arg_MODULES})
  pavo_use_headers(${name} PUBLIC Support ${arg_USES})
  pavo_defaults(${name})
endfunction()

# A double: another implementation of the same headers, for tests.
function(pavo_double name)
  cmake_parse_arguments(arg "" "" "SOURCES;USES" ${ARGN})
  add_library(${name} STATIC ${arg_SOURCES})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR})
  pavo_use_headers(${name} PUBLIC Support ${arg_USES})
  pavo_defaults(${name})
endfunction()

# What all test programs are compiled with: they share a precompiled header, so they must agree on it. Where a
# test failed is told by lines; its variables would cost each build a sixth of its time. PipeWire's users are
# compiled for threads, so all are.
#
# A few sources of a program are compiled as one: most of their time goes into templates that they share. So
# names in their unnamed namespaces must differ.
set(PAVO_TEST_OPTIONS -pthread $<$<CONFIG:Debug>:-g1>)

function(pavo_compile_as_test target)
  pavo_defaults(${target})
  target_compile_options(${target} PRIVATE ${PAVO_TEST_OPTIONS})
  get_target_property(sources ${target} SOURCES)
  if(NOT "${sources};" MATCHES "\\.(c|mm);")
    target_precompile_headers(${target} REUSE_FROM TestHeaders)
    set_target_properties(${target} PROPERTIES UNITY_BUILD ${PAVO_JOIN_TESTS} UNITY_BUILD_BATCH_SIZE 8)
  endif()
endfunction()

# What several test programs have in common.
function(pavo_test_library name)
  cmake_parse_arguments(arg "" "" "SOURCES;LIBS" ${ARGN})
  add_library(${name} STATIC ${arg_SOURCES})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PUBLIC ${arg_LIBS} GTest::gmock GTest::gtest)
  pavo_compile_as_test(${name})
  # The precompiled header is a program's, and the library goes into programs only.
  set_target_properties(${name} PROPERTIES POSITION_INDEPENDENT_CODE OFF)
  target_compile_options(${name} PRIVATE -fPIE)
endfunction()

# WRAPS names C functions that the test replaces (GNU ld --wrap): it defines __wrap_<name> and may call
# __real_<name>. LIBS are linked in the order given: product modules first, then what implements them.
function(pavo_test name)
  cmake_parse_arguments(arg "" "TIMEOUT" "LABEL;SOURCES;LIBS;WRAPS;PROPERTIES" ${ARGN})
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 60)
  endif()
  if(NOT arg_LABEL)
    set(arg_LABEL unit)
  endif()
  add_executable(${name} ${arg_SOURCES})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PRIVATE ${arg_LIBS} Support GTest::gmock GTest::gtest GTest::gtest_main)
  foreach(symbol ${arg_WRAPS})
    target_link_options(${name} PRIVATE -Wl,--wrap=${symbol})
  endforeach()
  pavo_compile_as_test(${name})
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT ${arg_TIMEOUT} ${arg_PROPERTIES})
  # Not among the properties above, where a list of labels would come apart.
  set(labels ${CMAKE_CURRENT_BINARY_DIR}/${name}_labels.cmake)
  file(WRITE ${labels} "set_tests_properties(\${${name}_TESTS} PROPERTIES LABELS \"${arg_LABEL}\")\n")
  set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${labels})
endfunction()

# Compiles each header of the framework as the first of a file, so that none needs what another one includes.
function(pavo_check_headers name)
  set(include_folder ${PROJECT_SOURCE_DIR}/Frameworks/${name}/include)
  file(GLOB_RECURSE headers CONFIGURE_DEPENDS RELATIVE ${include_folder} ${include_folder}/*.h)
  foreach(header ${headers})
    foreach(language c cpp)
      set(source ${CMAKE_CURRENT_BINARY_DIR}/HeadersAlone/${header}.${language})
      file(CONFIGURE OUTPUT ${source} CONTENT "#include <${header}>\n")
      list(APPEND sources ${source})
    endforeach()
  endforeach()
  add_library(${name}HeadersAlone OBJECT ${sources})
  target_link_libraries(${name}HeadersAlone PRIVATE ${name}_headers)
  set_target_properties(${name}HeadersAlone PROPERTIES C_STANDARD 11 C_STANDARD_REQUIRED ON)
  pavo_defaults(${name}HeadersAlone)
endfunction()
