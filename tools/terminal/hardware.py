"""The machine that the test terminal runs on, as QEMU's command line. For boot and for the terminal tests."""

# A machine of this kind really suspends to memory, and its RTC really wakes it. Emulated: hosts without KVM are common,
# and some that offer it hang.
MACHINE = ["-M", "q35", "-accel", "tcg,thread=multi", "-smp", "1", "-m", "1024", "-rtc", "base=utc"]
SCREEN = ["-display", "none", "-vga", "std"]
KERNEL_ARGUMENTS = "root=/dev/vda rw console=tty0 console=ttyS0 quiet no_console_suspend"
# No way out of the machine, but a wired adapter with an address.
NETWORK = "user,restrict=on,model=virtio-net-pci"


def command(image, kernel_arguments="", network="", devices=()):
    """Boots the disk of the directory `image`. What is written to it lasts as long as QEMU, restarts included."""
    return [
        "qemu-system-x86_64", *MACHINE, "-nodefaults", *SCREEN,
        "-snapshot", "-drive", f"file={image}/disk.raw,if=virtio,format=raw",
        "-kernel", f"{image}/vmlinuz", "-initrd", f"{image}/initrd.img",
        "-append", f"{KERNEL_ARGUMENTS} {kernel_arguments}",
        "-nic", NETWORK + network, "-device", "virtio-serial", *devices]


def line(name, path):
    """A character device of this name whose other end is a Unix socket at the path."""
    return ["-chardev", f"socket,id={name},path={path},server=on,wait=off"]
