# cmake -DINPUT=FILE -DOUTPUT=FILE -P EmbedBytes.cmake: the bytes of INPUT as C++ initialisers.
file(READ ${INPUT} bytes HEX)
string(REGEX REPLACE "(..)" "0x\\1," bytes "${bytes}")
file(WRITE ${OUTPUT} "${bytes}\n")
