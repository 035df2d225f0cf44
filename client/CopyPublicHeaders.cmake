# cmake -DSOURCE=FOLDER -DTARGET=FOLDER -P CopyPublicHeaders.cmake
# In the project, headers are included from its root; where they are installed, they share a folder with others' and
# are included by the product's name.
cmake_minimum_required(VERSION 3.25)
include(${CMAKE_CURRENT_LIST_DIR}/PublicHeaders.cmake)
stillora_installed_headers(${SOURCE} headers)
file(REMOVE_RECURSE ${TARGET})
foreach(header IN LISTS headers)
    file(READ ${SOURCE}/${header} text)
    string(REGEX REPLACE "(\n#include \")" "\\1stillora/" text "${text}")
    file(WRITE ${TARGET}/${header} "${text}")
endforeach()
