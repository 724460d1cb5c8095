# Joins the sources of the page to one file: cmake -DSOURCES= -DTHREE= -DORBIT= -DVERSION= -DPAGE= -P join.cmake
#
# The scripts are ECMAScript modules, so that editors and linters know what each one takes from others. The page has them as one
# script: lines that import are left out, and the word export. A name stands in one module only. A module imports from those before it in the list.
set(modules data colour shaders faces body picking overlay stage charts summary panel main)

file(READ ${SOURCES}/index.html page)
file(READ ${SOURCES}/style.css style)
file(READ ${SOURCES}/three_licence.txt licence)
file(READ ${THREE} three)
file(READ ${ORBIT} orbit)

set(script "")
foreach(module IN LISTS modules)
  file(READ ${SOURCES}/${module}.js text)
  string(REGEX REPLACE "(^|\n)import [^;]*;" "\\1" text "${text}")
  string(REGEX REPLACE "(^|\n)export " "\\1" text "${text}")
  string(APPEND script "${text}")
endforeach()

# Two steps a part: what is put in may have a marker of its own.
foreach(part style licence three orbit script VERSION)
  string(TOUPPER "${part}" marker)
  string(FIND "${page}" "@${marker}@" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "index.html has no @${marker}@")
  endif()
  string(LENGTH "@${marker}@" length)
  string(SUBSTRING "${page}" 0 ${at} before)
  math(EXPR behind "${at} + ${length}")
  string(SUBSTRING "${page}" ${behind} -1 after)
  set(page "${before}${${part}}${after}")
endforeach()
file(WRITE ${PAGE} "${page}")
