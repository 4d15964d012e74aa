# Writes OUT, a C++ source that defines gvcam::built_in_description() with the text of the file FROM.
file(READ "${FROM}" text)
file(WRITE "${OUT}" "#include \"platform/gvcam/built_in_description.h\"\n
namespace gvcam {\n
std::string_view built_in_description() {
  return R\"gvcam(${text})gvcam\";
}\n
}  // namespace gvcam\n")
