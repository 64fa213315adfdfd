# What the pages link to in the source, as Doxygen needs it: a file that it reads too has a page of its own, others lie
# beside the pages (HTML_EXTRA_FILES). The text of a reference cannot be code.
s#\[`?([^]`]*)`?\]\((\.\./)*(include|examples)/([^)]*\.(h|cpp))\)#[\1](@ref \4)#g
s#\]\((\.\./)*[^):@]*/([^):/]*\.(cpp|txt|rules|service))\)#](\2)#g
# Doxygen finds images by their path below IMAGE_PATH.
s#\]\((\.\./)+(diagrams|figures)/#](\2/#g
