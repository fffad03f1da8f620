# cmake -DTEXT=FILE -DNAME=IDENTIFIER -DOUTPUT=FILE.cpp -P embed.cmake: a C++ source that holds a text file.
file(READ "${TEXT}" text)
file(WRITE "${OUTPUT}" "namespace oxrctl {\n\nextern const char ${NAME}[];\nconst char ${NAME}[] = R\"text(${text})text\";\n\n}  // namespace oxrctl\n")
