#!/bin/sed -Ef
# Links of the pages as Doxygen takes them: to pages without a heading, to other files beside the HTML.
s/\.md#[a-z-]+\)/.md)/g
s/\((\.\.\/)?(docs\/)?([a-z]+\.txt|examples[^)]*)\)/(\3)/g
