# Builds for macOS on Debian 12 with nothing of Apple's: Debian's clang, lld and libc++ headers, this
# project's declarations of the C library and the frameworks, and link stubs made from MacOS/stubs. A
# toolchain file.
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR arm64)
set(CMAKE_OSX_ARCHITECTURES arm64 x86_64 CACHE STRING "Architectures of the universal files")
set(CMAKE_OSX_DEPLOYMENT_TARGET 12.3 CACHE STRING "The first macOS with camera extensions")
set(PAVO_OWN_SDK ON)

get_filename_component(pavo_root ${CMAKE_CURRENT_LIST_DIR} DIRECTORY)
set(pavo_llvm /usr/lib/llvm-19)
set(pavo_sdk ${CMAKE_BINARY_DIR}/sdk)
set(CMAKE_OSX_SYSROOT ${pavo_sdk} CACHE PATH "Folder with the link stubs")

# The compiler joins the architectures with a program that it knows as lipo.
file(MAKE_DIRECTORY ${pavo_sdk}/tools)
file(CREATE_LINK ${pavo_llvm}/bin/llvm-lipo ${pavo_sdk}/tools/lipo SYMBOLIC)

set(CMAKE_C_COMPILER ${pavo_llvm}/bin/clang)
set(CMAKE_CXX_COMPILER ${pavo_llvm}/bin/clang++)
set(CMAKE_OBJCXX_COMPILER ${pavo_llvm}/bin/clang++)
set(pavo_c_headers "-isystem ${pavo_llvm}/lib/clang/19/include")
file(GLOB pavo_frameworks ${pavo_root}/Frameworks/*/include)
foreach(folder ${pavo_root}/MacOS/include/libc ${pavo_root}/MacOS/include ${pavo_frameworks})
  string(APPEND pavo_c_headers " -isystem ${folder}")
endforeach()
# Ours comes first of the C++ library's: it configures the rest.
set(pavo_cxx_headers "-nostdinc++ -isystem ${pavo_root}/MacOS/include/libc++")
string(APPEND pavo_cxx_headers " -isystem ${pavo_llvm}/include/c++/v1 ${pavo_c_headers}")
set(CMAKE_C_FLAGS_INIT "-B${pavo_sdk}/tools -nostdinc ${pavo_c_headers}")
set(CMAKE_CXX_FLAGS_INIT "-B${pavo_sdk}/tools -nostdinc ${pavo_cxx_headers}")
set(CMAKE_OBJCXX_FLAGS_INIT ${CMAKE_CXX_FLAGS_INIT})
foreach(language C CXX OBJCXX)
  set(CMAKE_${language}_COMPILER_TARGET x86_64-apple-macos12.3)
  # Members of an archive are universal files, which only this tool takes.
  set(CMAKE_${language}_CREATE_STATIC_LIBRARY
    "${pavo_llvm}/bin/llvm-libtool-darwin -static -o <TARGET> <OBJECTS>")
endforeach()

foreach(kind EXE MODULE SHARED)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT "-fuse-ld=lld -Wl,-adhoc_codesign -Wl,-fatal_warnings")
endforeach()
set(CMAKE_AR ${pavo_llvm}/bin/llvm-ar CACHE FILEPATH "")
set(CMAKE_RANLIB ${pavo_llvm}/bin/llvm-ranlib CACHE FILEPATH "")
set(CMAKE_INSTALL_NAME_TOOL ${pavo_llvm}/bin/llvm-install-name-tool CACHE FILEPATH "")
# Programs cannot be run here, and what a link needs does not exist yet when the compiler is looked at.
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
