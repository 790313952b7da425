# Writes the Debian copyright file (the machine-readable format) from the
# LICENSE at the root, so that the package states the licence the sources
# carry and the two cannot drift apart.
#
#   vk_debian_copyright(<LICENSE path> <output path>)
#
# The LICENSE is the MIT text: a title line, the "Copyright (c) ..." line and
# the permission text. Debian calls this licence "Expat".
function(vk_debian_copyright license_file output)
  file(STRINGS "${license_file}" lines)
  set(holder "")
  set(body "")
  set(in_body FALSE)
  foreach(line IN LISTS lines)
    if(line MATCHES "^Copyright \\(c\\) (.+)$")
      set(holder "${CMAKE_MATCH_1}")
      set(in_body TRUE)
      continue()
    endif()
    if(NOT in_body)
      continue()
    endif()
    if(line STREQUAL "")
      string(APPEND body " .\n")
    else()
      string(APPEND body " ${line}\n")
    endif()
  endforeach()
  if(holder STREQUAL "")
    message(FATAL_ERROR "${license_file} holds no \"Copyright (c) ...\" line")
  endif()
  # The permission text starts after the blank line below the copyright line.
  string(REGEX REPLACE "^ \\.\n" "" body "${body}")
  file(WRITE "${output}"
    "Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/\n"
    "Upstream-Name: vkagnss\n"
    "Upstream-Contact: ${VK_MAINTAINER}\n"
    "\n"
    "Files: *\n"
    "Copyright: ${holder}\n"
    "License: Expat\n"
    "${body}")
endfunction()

# Writes the changelog a Debian package carries (gzip'd by the caller), one
# entry for the version being packed, dated now (or SOURCE_DATE_EPOCH).
#
#   vk_debian_changelog(<version> <output path>)
function(vk_debian_changelog version output)
  string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
  file(WRITE "${output}"
    "vkagnss (${version}) unstable; urgency=medium\n"
    "\n"
    "  * vkagnss ${version}, packed from the sources.\n"
    "\n"
    " -- ${VK_MAINTAINER}  ${date}\n")
endfunction()
