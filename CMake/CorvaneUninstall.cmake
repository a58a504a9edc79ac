# Removes what `cmake --install` has put in place, as the lists say that it left in the build folder
# BUILD, and the folders that are ours alone.

file(GLOB lists ${BUILD}/install_manifest*.txt)
if(NOT lists)
  message(FATAL_ERROR "Nothing was installed from ${BUILD}.")
endif()

set(folders)
foreach(list IN LISTS lists)
  file(STRINGS ${list} files ENCODING UTF-8)
  foreach(file IN LISTS files)
    set(file "$ENV{DESTDIR}${file}")
    if(EXISTS ${file} OR IS_SYMLINK ${file})
      message(STATUS "Removing: ${file}")
      file(REMOVE ${file})
    else()
      message(STATUS "Not there: ${file}")
    endif()
    cmake_path(GET file PARENT_PATH folder)
    list(APPEND folders ${folder})
  endforeach()
  file(REMOVE ${list})
endforeach()

# The innermost come first.
list(REMOVE_DUPLICATES folders)
list(SORT folders ORDER DESCENDING)
foreach(folder IN LISTS folders)
  file(GLOB left ${folder}/*)
  if(folder MATCHES "/CorvaneControl(/|$)" AND NOT left)
    file(REMOVE_RECURSE ${folder})
  endif()
endforeach()
