# Doxygen 1.9.4 copies a Markdown link to a source file as it is, and has no option for it, so that it leads nowhere in
# the HTML. Here a file that Doxygen reads gets a link to its page; other files are copied to the pages (HTML_EXTRA_FILES). The text
# of a reference cannot be code.
s#\[`?([^]`]*)`?\]\((\.\./)*(include|examples)/([^)]*\.(h|cpp))\)#[\1](@ref \4)#g
s#\]\((\.\./)*[^): ]*/([^):/ ]*\.(cpp|txt|rules|service|sysusers|conf|config|py))\)#](\2)#g
# Doxygen finds images by their path below IMAGE_PATH.
s#\]\((\.\./)+(diagrams|figures)/#](\2/#g
# Doxygen knows no anchors of headings: a link to one leads to the page.
s:\]\(([^)#]*\.md)#[^)]*\):](\1):g
