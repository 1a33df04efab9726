# Library sources are found by name, so a new unit needs no edit here.
# A file named *_avx2.cpp or *_avx512.cpp holds x86-64 vector forms, *_neon.cpp arm64 ones;
# each is compiled only for its architecture, with the instruction set it needs.
file(GLOB_RECURSE ORU_SOURCES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/*.cpp)

if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|amd64)$")
  set(ORU_ARCH_X86_64 ON)
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64|ARM64)$")
  set(ORU_ARCH_ARM64 ON)
endif()

set(ORU_AVX2_FLAGS -mavx2 -mfma -mf16c)
set(ORU_AVX512_FLAGS -mavx2 -mfma -mf16c -mavx512f -mavx512bw -mavx512dq -mavx512vl)

foreach(src IN LISTS ORU_SOURCES)
  if(src MATCHES "_avx512\\.cpp$")
    if(ORU_ARCH_X86_64)
      set_source_files_properties(${src} PROPERTIES COMPILE_OPTIONS "${ORU_AVX512_FLAGS}")
    else()
      list(REMOVE_ITEM ORU_SOURCES ${src})
    endif()
  elseif(src MATCHES "_avx2\\.cpp$")
    if(ORU_ARCH_X86_64)
      set_source_files_properties(${src} PROPERTIES COMPILE_OPTIONS "${ORU_AVX2_FLAGS}")
    else()
      list(REMOVE_ITEM ORU_SOURCES ${src})
    endif()
  elseif(src MATCHES "_neon\\.cpp$")
    if(NOT ORU_ARCH_ARM64)
      list(REMOVE_ITEM ORU_SOURCES ${src})
    endif()
  endif()
endforeach()
