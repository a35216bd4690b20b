# Writes the files of the page into a source: FILES (names), FOLDER, OUTPUT.
file(WRITE ${OUTPUT}
     "#include \"gateway/web/PageFile.h\"\n\nnamespace {\n\nconstexpr gateway::PageFile kFiles[] = {\n")
foreach(name ${FILES})
    file(READ ${FOLDER}/${name} content)
    file(APPEND ${OUTPUT} "    {\"${name}\", R\"~page~(${content})~page~\"},\n")
endforeach()
file(APPEND ${OUTPUT} "};\n\n} // namespace\n
std::span<const gateway::PageFile> gateway::pageFiles() {\n    return kFiles;\n}\n")
