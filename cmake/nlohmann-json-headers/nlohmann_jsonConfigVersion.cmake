find_path(KELP_JSON_HEADERS nlohmann/detail/abi_macros.hpp
    PATHS /usr/include /usr/local/include NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH
    DOC "Folder that holds nlohmann/json.hpp, 3.11 or newer")
set(PACKAGE_VERSION 0)
if(KELP_JSON_HEADERS)
    set(PACKAGE_VERSION "")
    foreach(part MAJOR MINOR PATCH)
        file(STRINGS "${KELP_JSON_HEADERS}/nlohmann/detail/abi_macros.hpp" line
            REGEX "#define NLOHMANN_JSON_VERSION_${part} ")
        string(REGEX MATCH "[0-9]+" number "${line}")
        list(APPEND PACKAGE_VERSION ${number})
    endforeach()
    string(REPLACE ";" "." PACKAGE_VERSION "${PACKAGE_VERSION}")
endif()
if(PACKAGE_VERSION VERSION_GREATER_EQUAL PACKAGE_FIND_VERSION)
    set(PACKAGE_VERSION_COMPATIBLE TRUE)
endif()
