# What doxygen 1.9 does not know: links and anchors of headings, file names as links to pages, code that ends in '.
s/\[([^]]*)\]\(#[a-z0-9-]*\)/\1/g
s/\]\(([a-z-]*\.md)#[a-z0-9-]*\)/](\1)/g
s/`(docs\/[a-z-]+\.md|bench\/README\.md|tools\/wireshark\/README\.md|CHANGELOG\.md)`/[\1](\1)/g
s/`([^` ]+')`/``\1``/g
