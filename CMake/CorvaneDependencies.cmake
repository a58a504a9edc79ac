# The libraries that CorvaneControl stands on, each found through its own CMake or pkg-config file.
# Scripts/bootstrap installs them all.

function(corvane_require found what debian homebrew)
  if(NOT ${found})
    message(FATAL_ERROR
      "${what} is missing. Install it with Scripts/bootstrap, or by hand:\n"
      "  Debian, Ubuntu: apt install ${debian}\n"
      "  macOS:          brew install ${homebrew}")
  endif()
endfunction()

find_package(PkgConfig QUIET)
corvane_require(PKG_CONFIG_FOUND "pkg-config" pkg-config pkgconf)

# corvane_pkg(TARGET package header archive...): an imported target for a pkg-config package, with its
# static archives in the given order when all of them are there.
function(corvane_pkg target package debian homebrew)
  pkg_check_modules(${target} QUIET ${package})
  corvane_require(${target}_FOUND "${package}" "${debian}" "${homebrew}")
  set(libraries)
  foreach(name IN LISTS ARGN)
    find_library(${target}_${name}_LIBRARY NAMES lib${name}.a ${name}
                 HINTS ${${target}_LIBRARY_DIRS} ${${target}_LIBDIR})
    corvane_require(${target}_${name}_LIBRARY "The library ${name}" "${debian}" "${homebrew}")
    list(APPEND libraries ${${target}_${name}_LIBRARY})
  endforeach()
  add_library(Corvane::${target} INTERFACE IMPORTED GLOBAL)
  target_include_directories(Corvane::${target} SYSTEM INTERFACE ${${target}_INCLUDE_DIRS})
  target_link_libraries(Corvane::${target} INTERFACE ${libraries})
endfunction()

corvane_pkg(utf8proc libutf8proc libutf8proc-dev utf8proc utf8proc)
# The extensions call the parser, so they stand before it.
corvane_pkg(cmark libcmark-gfm "libcmark-gfm-dev libcmark-gfm-extensions-dev" cmark-gfm
            cmark-gfm-extensions cmark-gfm)
corvane_pkg(expat expat libexpat1-dev expat expat)
