# SPDX-License-Identifier: MIT
# Doxygen's view of a file: awk -f doxygen.awk FILE
#
# Headers: what means the same in every class (special members, defaulted comparisons, the constants of records
# and codecs) gets its few words here, so that the headers need not repeat them. Pages: headings get the anchors
# that links between the pages use, made unique by the page's name.

# The name of a heading in links: lower case, blanks to hyphens, punctuation dropped.
function slug(text) {
    text = tolower(text)
    gsub(/[^a-z0-9 _-]/, "", text)
    gsub(/ /, "-", text)
    return text
}

FNR == 1 {
    page = FILENAME
    sub(/.*\//, "", page)
    isPage = sub(/\.md$/, "", page)
    fenced = 0
    documentOf["Magic"] = "The tag of the record."
    documentOf["CurrentVersion"] = "The version that is written."
    documentOf["MinimumVersion"] = "The oldest version that is read."
    documentOf["PayloadSize"] = "Bytes of the payload."
    documentOf["Type"] = "The type tag of the kind."
    documentOf["kType"] = "The type tag."
    documentOf["kComponent"] = "What it counts."
    documentOf["kIdentifier"] = "The codec's number in the header of its chunks."
    documentOf["kName"] = "The codec's name."
    documentOf["kDefaultLevel"] = "The compression level of a new codec."
}

isPage {
    if ($0 ~ /^```/) fenced = !fenced
    if (fenced) { print; next }
    while (match($0, /\]\([a-z-]*(\.md)?#[^)]*\)/)) {
        link = substr($0, RSTART + 2, RLENGTH - 3)
        file = link; sub(/#.*/, "", file); sub(/\.md$/, "", file)
        anchor = link; sub(/^[^#]*#/, "", anchor)
        $0 = substr($0, 1, RSTART - 1) "](@" (file == "" ? page : file) "--" anchor ")" substr($0, RSTART + RLENGTH)
    }
    gsub(/\]\(@/, "](#")
    # Files that are no pages (examples, licence) are not part of the reference: their name stays, the link goes.
    while (match($0, /\[[^]\[]*\]\([A-Za-z.\/_]*\)/)) {
        link = substr($0, RSTART, RLENGTH)
        target = link; sub(/^[^]]*\]\(/, "", target); sub(/\)$/, "", target)
        text = link; sub(/^\[/, "", text); sub(/\]\(.*/, "", text)
        kept = target ~ /\.md$/ ? "@[" text "@(" target ")" : text
        $0 = substr($0, 1, RSTART - 1) kept substr($0, RSTART + RLENGTH)
    }
    while (match($0, /@\[[^@]*@\(/)) {
        text = substr($0, RSTART + 1, RLENGTH - 3)
        $0 = substr($0, 1, RSTART - 1) text "](" substr($0, RSTART + RLENGTH)
    }
    if ($0 ~ /^##+ /) {
        title = $0; sub(/^#+ /, "", title)
        $0 = $0 " {#" page "--" slug(title) "}"
    }
    print
    next
}

{ documentation = "" }
/^ *(explicit )?[A-Za-z0-9_]+\((const )?[A-Za-z0-9_]+&&?\)( noexcept)?( = (default|delete))?;$/ {
    text = $0; sub(/^ *(explicit )?/, "", text)
    name = text; sub(/\(.*/, "", name)
    type = text; sub(/^[^(]*\((const )?/, "", type); sub(/&.*/, "", type)
    if (name == type)
        documentation = $0 ~ /delete;/ ? "Not copyable." : $0 ~ /&&/ ? "Moves." : "Copies."
}
/operator=\((const )?[A-Za-z0-9_]+&&?\)( noexcept)?( = (default|delete))?;$/ {
    documentation = $0 ~ /delete;/ ? "Not copyable." : $0 ~ /&&/ ? "Moves." : "Copies."
}
/^ *~[A-Za-z0-9_]+\(\)( override)?( = default)?;$/ || /^ *virtual ~[A-Za-z0-9_]+\(\)( = default)?;$/ {
    documentation = "Destroys the object."
}
/operator==\(const [A-Za-z0-9_]+&\) const = default;$/ { documentation = "Equal in every field." }
/operator<=>\(const [A-Za-z0-9_]+&\) const = default;$/ { documentation = "Compares field by field, in their order." }
/^ *static constexpr [A-Za-z0-9_:]+( char\*)? [A-Za-z]+ = / {
    name = $0; sub(/ = .*/, "", name); sub(/.* /, "", name)
    if (name in documentOf) documentation = documentOf[name]
}
documentation != "" && previous !~ /^ *\/\/\// { sub(/ *\/\/ .*$/, ""); $0 = $0 "  ///< " documentation }
{ previous = $0; print }
