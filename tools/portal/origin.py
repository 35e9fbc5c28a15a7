"""Keeps other web pages out: the portal is driven by its own page and by programs, not by whatever else is open in the
same browser.

A browser names the page that sends a request in Origin, and the name it was reached by in Host. A page of another site
has another origin; a page whose host name was pointed at this machine has that host name. Programs send no Origin. The
terminals' own interface is not guarded: it is reached by whatever name the portal has for them.
"""

import ipaddress

from exchange import Refused


def refuse_other_pages(request, own_host):
    """Raises Refused for a request that some other web page made. `own_host` is what the portal listens on."""
    host = request.header("Host") or ""
    if not _is_own_name(_name_in(host), own_host):
        raise Refused(403, "the portal does not go by the name in the Host header")
    origin = request.header("Origin")
    if origin is not None and origin.lower() != f"http://{host.lower()}":
        raise Refused(403, "another page's requests are not taken")


def _name_in(host):
    """"localhost:8480" -> "localhost";  "[::1]:8480" -> "::1";  "127.0.0.1" -> "127.0.0.1"."""
    if host.startswith("["):
        return host[1:].partition("]")[0]
    return host.partition(":")[0]


def _is_own_name(name, own_host):
    # An address cannot be pointed elsewhere, so any will do: the portal may listen on all of a machine's.
    return name.lower() in ("localhost", own_host.lower()) or _is_address(name)


def _is_address(name):
    try:
        ipaddress.ip_address(name)
        return True
    except ValueError:
        return False
