# Makes one HTML file of page.html, style and scripts, and a C++ source that holds it in two pieces: before the data of a
# page and behind them. Run as a script when one of the files has changed:
#
#   cmake -DSOURCE=<folder of the files> -DSCRIPTS=<names, in order, comma-separated> -DOUTPUT=<C++ source> -P PostcardPage.cmake
#
# Style and script are named by their hashes in the page's content security policy, so that a browser runs nothing else.
cmake_minimum_required(VERSION 3.24)

# base64 of the SHA-256 of a text, as a content security policy writes it: CMake knows the digits of the hash only.
function(page_hash result text)
   string(SHA256 digits "${text}")
   string(APPEND digits "00") # 32 bytes and one more are a multiple of three
   set(alphabet "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/")
   set(hash "")
   foreach(group RANGE 0 10)
      math(EXPR begin "${group} * 6")
      string(SUBSTRING "${digits}" ${begin} 6 bytes)
      foreach(shift IN ITEMS 18 12 6 0)
         math(EXPR place "(0x${bytes} >> ${shift}) & 63")
         string(SUBSTRING "${alphabet}" ${place} 1 character)
         string(APPEND hash "${character}")
      endforeach()
   endforeach()
   string(SUBSTRING "${hash}" 0 43 hash) # the last character would be that of the byte too many
   set(${result} "${hash}=" PARENT_SCOPE)
endfunction()

file(READ "${SOURCE}/page.html" page)
file(READ "${SOURCE}/page.css" style)
# All scripts share one scope of their own and leave nothing in that of the browser.
set(script "'use strict';\n(() => {\n")
string(REPLACE "," ";" SCRIPTS "${SCRIPTS}")
foreach(name IN LISTS SCRIPTS)
   file(READ "${SOURCE}/${name}.js" part)
   string(APPEND script "${part}")
endforeach()
string(APPEND script "})();\n")

page_hash(styleHash "${style}")
page_hash(scriptHash "${script}")
string(REPLACE "@STYLE_HASH@" "${styleHash}" page "${page}")
string(REPLACE "@SCRIPT_HASH@" "${scriptHash}" page "${page}")
string(REPLACE "@STYLE@" "${style}" page "${page}")
string(REPLACE "@SCRIPT@" "${script}" page "${page}")
string(FIND "${page}" "@DATA@" data)
string(SUBSTRING "${page}" 0 ${data} begin)
math(EXPR data "${data} + 6")
string(SUBSTRING "${page}" ${data} -1 end)

file(WRITE "${OUTPUT}" "// Made of the files in postcard/report/page/web.
#include \"postcard/report/page/Template.h\"

namespace Postcard::Report {

const std::string_view pageBegin = R\"PAGE(${begin})PAGE\";
const std::string_view pageEnd = R\"PAGE(${end})PAGE\";

} // namespace Postcard::Report
")
