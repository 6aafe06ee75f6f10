# Run as a script: writes OUTPUT, a source file with the content of the preview's page from FOLDER.
function(embed variable file)
  file(READ ${FOLDER}/${file} bytes HEX)
  string(REGEX REPLACE "(..)" "'\\\\x\\1'," bytes "${bytes}")
  string(REPEAT "'[^']*'," 8 line)
  string(REGEX REPLACE "(${line})" "\\1\n" bytes "${bytes}")
  set(code "${code}constexpr char ${variable}[] = {\n${bytes}};\n" PARENT_SCOPE)
endfunction()

set(code "#include \"Tools/PreviewFiles.h\"\n\nnamespace pavo::tools {\nnamespace {\n\n")
embed(kPage index.html)
embed(kStyle preview.css)
embed(kScript preview.js)
string(APPEND code "\n}  // namespace\n
const std::array<PreviewFile, 3> kPreviewFiles = {{
    {\"/\", \"text/html; charset=utf-8\", {kPage, sizeof kPage}},
    {\"/preview.css\", \"text/css; charset=utf-8\", {kStyle, sizeof kStyle}},
    {\"/preview.js\", \"text/javascript; charset=utf-8\", {kScript, sizeof kScript}},
}};\n
}  // namespace pavo::tools\n")
file(WRITE ${OUTPUT} "${code}")
