# shellcheck shell=bash
# Where this machine has its packages from. For what makes other Debians of them.

# find_mirror: the address of the archive, or a message and a failure.
find_mirror() {
  local suite mirror
  # shellcheck source=/dev/null  # this machine's
  suite=$(. /etc/os-release && echo "$VERSION_CODENAME")
  # shellcheck disable=SC2016  # the names in the format are apt's
  mirror=$(apt-get indextargets --format '$(REPO_URI)' "Created-By: Packages" "Codename: $suite" "Component: main" | head -n 1)
  [[ -n $mirror ]] || { echo "no package source of this machine has $suite" >&2; return 1; }
  echo "$mirror"
}
