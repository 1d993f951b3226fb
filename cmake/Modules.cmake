include(GoogleTest)

# addModule(Name [FOLDER <folder>] SOURCES ... HEADERS ... PUBLIC ... PRIVATE ...)
#
# One folder of src/ as one static library; FOLDER names the folder of a library that is a part of another's, because
# it links what not everybody needs. PUBLIC is what its headers include, PRIVATE the rest. Its include root
# holds a link to the folder and nothing else, so that "Projects/ProjectStore.h" resolves only for those who link it.
function(addModule name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "FOLDER" "SOURCES;HEADERS;PUBLIC;PRIVATE")
    if(NOT arg_FOLDER)
        set(arg_FOLDER ${name})
    endif()
    set(root ${PROJECT_BINARY_DIR}/modules/${name})
    file(MAKE_DIRECTORY ${root})
    file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR} ${root}/${arg_FOLDER} SYMBOLIC)
    list(TRANSFORM arg_HEADERS PREPEND ${root}/${arg_FOLDER}/)
    add_library(${name} STATIC ${arg_SOURCES})
    target_sources(${name} PUBLIC FILE_SET HEADERS BASE_DIRS ${root} FILES ${arg_HEADERS})
    target_compile_features(${name} PUBLIC cxx_std_23) # public, so that its headers compile alone when they are checked
    target_link_libraries(${name} PUBLIC ${arg_PUBLIC} PRIVATE ${arg_PRIVATE} projectOptions)
endfunction()

# addModuleTests(Name SOURCES ... LINK ... [LABELS ...]): tests/<Name> as one program, each test known to CTest.
function(addModuleTests name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LINK;LABELS")
    add_executable(${name}Tests ${arg_SOURCES})
    target_link_libraries(${name}Tests PRIVATE ${name} ${arg_LINK} TestSupport projectOptions)
    gtest_discover_tests(${name}Tests DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 120 LABELS "${arg_LABELS}")
endfunction()
