# What the DLL shows to the outside, compared with what was reviewed: the names it exports
# (tests/exports.txt), the libraries it imports (tests/imports.txt), its version. Sourced by ./dev.
# shellcheck shell=bash

dll=build/mingw-release/bin/KT5OSSE_INSTALL64.dll
binutils=x86_64-w64-mingw32

# One line a name, as C++ declares it, sorted; data is marked, since a client imports it differently.
# The two symbols that every constructor has are one name.
exportedNames() {
  {
    "$binutils-nm" --defined-only "$dll"
    "$binutils-objdump" -p "$dll"
  } | awk '
    $2 ~ /^[BDR]$/ { data[$3] = 1 }
    /^\[Ordinal\/Name Pointer\] Table/ { exports = 1 }
    /^$/ { exports = 0 }
    exports && /^\t\[/ { print (($NF in data) ? "data " : "code ") $NF }
  ' | "$binutils-c++filt" | LC_ALL=C sort -u
}

compareExports() {
  local names=build/exports.txt
  exportedNames > "$names"
  diff --unified=0 --label "reviewed, tests/exports.txt" --label "exported by the DLL" \
    tests/exports.txt "$names" || {
    echo "If the change is meant: ./dev exports --update, and review the difference."
    return 1
  }
}

importedLibraries() {
  "$binutils-objdump" -p "$dll" | sed -n 's/^\tDLL Name: //p' | LC_ALL=C sort -u
}

# The reviewed list is a limit: a library on it need not be imported.
compareImports() {
  local foreign
  foreign=$(importedLibraries | LC_ALL=C comm -23 - tests/imports.txt)
  [ -z "$foreign" ] || {
    printf 'imported, but not listed in tests/imports.txt: %s\n' "$foreign"
    return 1
  }
}

# The project's version stands in CMakeLists.txt as 1.2.3.4, in the resource as 1, 2, 3, 4.
compareVersion() {
  local version
  version=$(sed -n 's/^project(.* VERSION \([0-9.]*\) .*/\1/p' CMakeLists.txt)
  "$binutils-windres" -J coff -i "$dll" -O rc | grep -q "^ *FILEVERSION ${version//./, }\$" || {
    echo "the DLL's version resource is missing or is not $version"
    return 1
  }
}

buildSurface() {
  needPackages "${crossPackages[@]}"
  build mingw-release --target osse
}

reviewExports() {
  buildSurface
  case ${1:-} in
    --update)
      exportedNames > tests/exports.txt
      say "tests/exports.txt now lists $(wc -l < tests/exports.txt) names"
      ;;
    '') compareExports && say "the DLL exports the reviewed names" ;;
    *) die "exports takes --update or nothing" ;;
  esac
}
