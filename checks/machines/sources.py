"""Fetches the source of SQLiteCpp, which includes SQLite: the one library that is neither header-only nor installed as
source.

The package lists of this machine are not changed."""
import pathlib
import platform
import subprocess

PACKAGE = "sqlitecpp"
KEYRING = "/usr/share/keyrings/debian-archive-keyring.gpg"


def source_list():
    """Returns this machine's package sources, as lines for source packages."""
    release = platform.freedesktop_os_release()["VERSION_CODENAME"]
    form = f"deb-src [signed-by={KEYRING}] $(REPO_URI) $(RELEASE) $(COMPONENT)"
    lines = subprocess.run(
        ["apt-get", "indextargets", "--no-release-info", "--format", form, "Created-By: Packages"],
        stdout=subprocess.PIPE,
        text=True,
        check=True,
    ).stdout.splitlines()
    found = sorted({line for line in lines if line.endswith(f" {release} main")})
    if not found:
        raise SystemExit(f"machines: this machine has no packages of {release}/main configured")
    return "\n".join(found) + "\n"


def fetch(folder):
    """Returns the folder of the library's source, below `folder`."""
    source = folder / "source"
    if (source / "sqlite3" / "sqlite3.c").exists():
        return source
    apt = folder / "apt"
    for part in ("state/lists/partial", "cache/archives/partial"):
        (apt / part).mkdir(parents=True, exist_ok=True)
    (apt / "sources.list").write_text(source_list(), encoding="utf-8")
    options = {
        "Dir::Etc::SourceList": apt / "sources.list",
        "Dir::Etc::SourceParts": "/dev/null",
        "Dir::State": apt / "state",
        "Dir::Cache": apt / "cache",
        "APT::Sandbox::User": "root",
    }
    command = ["apt-get", "-qq", *(word for name, value in options.items() for word in ("-o", f"{name}={value}"))]
    subprocess.run([*command, "update"], check=True)
    subprocess.run([*command, "--download-only", "source", PACKAGE], cwd=apt, check=True)
    archive = next(pathlib.Path(apt).glob(f"{PACKAGE}_*.orig.tar.*"))
    source.mkdir(exist_ok=True)
    subprocess.run(["tar", "-xf", archive, "-C", source, "--strip-components=1"], check=True)
    return source
