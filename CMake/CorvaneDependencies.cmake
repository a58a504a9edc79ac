# The libraries that CorvaneControl stands on, each found through its own CMake or pkg-config file.
# Scripts/bootstrap installs them all. The installed package finds them by this file as well.

# corvane_require(found what debian homebrew): fails without it. Where the installed package is looked for,
# it returns: that package is not found then, and who looks for it decides what becomes of that.
macro(corvane_require found what debian homebrew)
  if(NOT ${found})
    set(corvane_kind FATAL_ERROR)
    if(${CMAKE_FIND_PACKAGE_NAME}_FIND_QUIETLY)
      set(corvane_kind DEBUG)
    elseif(CMAKE_FIND_PACKAGE_NAME)
      set(corvane_kind STATUS)
    endif()
    message(${corvane_kind}
      "${what} is missing. Install it with Scripts/bootstrap, or by hand:\n"
      "  Debian, Ubuntu: apt install ${debian}\n"
      "  macOS:          brew install ${homebrew}")
    return()
  endif()
endmacro()

find_package(PkgConfig QUIET)
corvane_require(PKG_CONFIG_FOUND "pkg-config" pkg-config pkgconf)

# corvane_pkg(TARGET package debian homebrew library...): an imported target for a pkg-config package,
# with its libraries in the given order: with CORVANE_STATIC their archives, where those are there.
function(corvane_pkg target package debian homebrew)
  if(TARGET Corvane::${target})
    return()
  endif()
  pkg_check_modules(corvane_${target} QUIET ${package})
  corvane_require(corvane_${target}_FOUND "${package}" "${debian}" "${homebrew}")
  set(libraries)
  foreach(name IN LISTS ARGN)
    set(names ${name})
    if(CORVANE_STATIC)
      list(PREPEND names lib${name}.a)
    endif()
    unset(library)
    find_library(library NAMES ${names} NO_CACHE
                 HINTS ${corvane_${target}_LIBRARY_DIRS} ${corvane_${target}_LIBDIR})
    corvane_require(library "The library ${name}" "${debian}" "${homebrew}")
    list(APPEND libraries ${library})
  endforeach()
  add_library(Corvane::${target} INTERFACE IMPORTED GLOBAL)
  target_include_directories(Corvane::${target} SYSTEM INTERFACE ${corvane_${target}_INCLUDE_DIRS})
  target_link_libraries(Corvane::${target} INTERFACE ${libraries})
endfunction()

corvane_pkg(utf8proc libutf8proc libutf8proc-dev utf8proc utf8proc)
# The extensions call the parser, so they stand before it.
corvane_pkg(cmark libcmark-gfm "libcmark-gfm-dev libcmark-gfm-extensions-dev" cmark-gfm
            cmark-gfm-extensions cmark-gfm)
corvane_pkg(expat expat libexpat1-dev expat expat)
