# Makes a source of the page's files: cmake -D out=FILE -D folder=DIR -D names=A;B -P EmbedPage.cmake
set(arrays "")
set(list "")
set(number 0)
foreach(name IN LISTS names)
  file(READ ${folder}/${name} hex HEX)
  string(REGEX REPLACE "(................................................................)" "\\1\n    " hex "${hex}")
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
  if(name MATCHES "\\.html$")
    set(type "text/html; charset=utf-8")
  elseif(name MATCHES "\\.css$")
    set(type "text/css; charset=utf-8")
  elseif(name MATCHES "\\.js$")
    set(type "text/javascript; charset=utf-8")
  elseif(name MATCHES "\\.svg$")
    set(type "image/svg+xml")
  else()
    message(FATAL_ERROR "what is ${name}?")
  endif()
  string(APPEND arrays "constexpr unsigned char file${number}[] = {\n    ${bytes}};\n")
  string(APPEND list "        {\"${name}\", \"${type}\", asText(file${number})},\n")
  math(EXPR number "${number} + 1")
endforeach()
file(WRITE ${out}.new "#include \"simulator/web/PageFile.h\"

#include <cstddef>

namespace Vantor {

namespace {

${arrays}
template <std::size_t size> std::string_view asText(const unsigned char (&bytes)[size])
{
    return {reinterpret_cast<const char*>(bytes), size};
}

} // namespace

const std::vector<PageFile>& getPageFiles()
{
    static const std::vector<PageFile> files{
${list}    };
    return files;
}

} // namespace Vantor
")
file(RENAME ${out}.new ${out})
