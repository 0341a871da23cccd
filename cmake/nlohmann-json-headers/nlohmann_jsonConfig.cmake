# find_package(nlohmann_json) for the NDK. On a PC the headers are in /usr/include, which also holds
# the headers of the PC's C library: the target makes only the JSON headers visible.
if(NOT TARGET nlohmann_json::nlohmann_json)
    set(link "${CMAKE_BINARY_DIR}/nlohmann-json-headers")
    file(MAKE_DIRECTORY "${link}")
    file(CREATE_LINK "${KELP_JSON_HEADERS}/nlohmann" "${link}/nlohmann" SYMBOLIC)
    add_library(nlohmann_json::nlohmann_json INTERFACE IMPORTED)
    set_target_properties(nlohmann_json::nlohmann_json PROPERTIES
        INTERFACE_INCLUDE_DIRECTORIES "${link}")
endif()
