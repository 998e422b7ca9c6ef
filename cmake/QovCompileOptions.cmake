# Options of our own code only; an installed qov::qovpub hands none of them to its users.
add_library(qov_compile_options INTERFACE)
target_compile_options(
  qov_compile_options INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion
                                -fno-omit-frame-pointer)
# Sources that are compiled together see each other's names; each by itself is the release's.
add_library(qov_unity_options INTERFACE)
target_compile_options(qov_unity_options INTERFACE
                       -Wno-shadow $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
if(CMAKE_UNITY_BUILD)
  target_link_libraries(qov_compile_options INTERFACE qov_unity_options)
endif()
if(QOV_WARNINGS_ARE_ERRORS)
  target_compile_options(qov_compile_options INTERFACE -Werror)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # Calls inside the library bind directly; data symbols (singletons) still unify across libraries.
  target_compile_options(qov_compile_options INTERFACE -fno-semantic-interposition)
endif()

if(QOV_FUZZ)
  set(QOV_SANITIZE "fuzzer-no-link,address,undefined")
endif()
if(QOV_SANITIZE)
  add_compile_options(-fsanitize=${QOV_SANITIZE} -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${QOV_SANITIZE})
  # GCC takes the sanitizers' own bookkeeping for uninitialised values, in the standard library too.
  target_compile_options(qov_compile_options INTERFACE
                         $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
endif()
