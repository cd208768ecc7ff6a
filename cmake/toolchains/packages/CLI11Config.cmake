include_guard() # tools and targets both ask for it
# The headers of CLI11.
add_library(CLI11::CLI11 INTERFACE IMPORTED)
target_include_directories(CLI11::CLI11 INTERFACE ${sorrelSharedHeaders})
