# find_package(nlohmann_json) for the NDK. The package is headers only, but on a PC they lie in
# /usr/include, among those of the PC's C library: the target leads to them and to nothing else.
if(NOT TARGET nlohmann_json::nlohmann_json)
    set(link "${CMAKE_BINARY_DIR}/nlohmann-json-headers")
    file(MAKE_DIRECTORY "${link}")
    file(CREATE_LINK "${KELP_JSON_HEADERS}/nlohmann" "${link}/nlohmann" SYMBOLIC)
    add_library(nlohmann_json::nlohmann_json INTERFACE IMPORTED)
    set_target_properties(nlohmann_json::nlohmann_json PROPERTIES
        INTERFACE_INCLUDE_DIRECTORIES "${link}")
endif()
