"""Archives whose bytes follow from the files' names, bytes and executable bits, and from one time."""
import gzip
import stat
import tarfile
import time
import zipfile

FIRST_ZIP_TIME = 315532800  # 1980, before which a zip knows no time


def files_below(folder):
    """Relative paths with slashes, sorted by their bytes."""
    found = [path.relative_to(folder).as_posix() for path in folder.rglob("*") if path.is_file()]
    return sorted(found, key=lambda name: name.encode())


def mode_of(path):
    return 0o755 if path.stat().st_mode & stat.S_IXUSR else 0o644


def write_zip(target, folder, epoch):
    moment = time.gmtime(max(epoch, FIRST_ZIP_TIME))[:6]
    with zipfile.ZipFile(target, "w") as archive:
        for name in files_below(folder):
            entry = zipfile.ZipInfo(name, moment)
            entry.create_system = 3  # Unix, whose permissions follow
            entry.external_attr = (stat.S_IFREG | mode_of(folder / name)) << 16
            entry.compress_type = zipfile.ZIP_DEFLATED
            archive.writestr(entry, (folder / name).read_bytes(), compresslevel=9)


def write_tar_gz(target, folder, top, epoch):
    with target.open("wb") as file, \
            gzip.GzipFile(filename="", mode="wb", fileobj=file, mtime=0, compresslevel=9) as packed, \
            tarfile.open(fileobj=packed, mode="w", format=tarfile.GNU_FORMAT) as archive:
        for name in files_below(folder):
            entry = tarfile.TarInfo(f"{top}/{name}")
            entry.size = (folder / name).stat().st_size
            entry.mode = mode_of(folder / name)
            entry.mtime = epoch
            entry.uname = entry.gname = "root"
            with (folder / name).open("rb") as content:
                archive.addfile(entry, content)
