# shellcheck shell=bash
# Sourced by the scripts that keep what they have made and make it anew only for another tree.

# digest_of PATH...: changes when a file below these paths does, or comes, or goes. Only files that git does not ignore.
digest_of() {
  git ls-files -z --cached --others --exclude-standard -- "$@" | sort -z | xargs -0 sha256sum | sha256sum | head -c 64
}

# is_made_of DIRECTORY DIGEST: what the directory holds was made of this tree.
is_made_of() { [[ -e $1/made-of && $(<"$1/made-of") == "$2" ]]; }

# Of all that the Debian package is made of.
package_digest() { digest_of README.md LICENSE CMakeLists.txt cmake debian docs packaging src tools/CMakeLists.txt tools/kioskctl tools/terminal/root; }
