#!/bin/sh
# Makes the attachment decoding fixtures with independent tools (coreutils base64, sharutils
# uuencode) and records the SHA-256 of each original. Run once; the outputs are committed.
set -eu
cd "$(dirname "$0")"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

head -c 6000 /dev/urandom >"$work/photo.jpg"
head -c 9001 /dev/urandom >"$work/pic.bin"
head -c 7000 /dev/urandom >"$work/data.bin"
(cd "$work" && sha256sum photo.jpg pic.bin data.bin) >SHA256SUMS

# One message: a text part and a base64 part, closed by the end boundary.
{
    printf 'From: Poster <poster@example.invalid>\n'
    printf 'Subject: holiday photo\n'
    printf 'Newsgroups: alt.test\n'
    printf 'Date: Tue, 3 Oct 2000 14:05:09 -0700\n'
    printf 'Message-ID: <single@example.invalid>\n'
    printf 'MIME-Version: 1.0\n'
    printf 'Content-Type: multipart/mixed; boundary="=_cut_here"\n'
    printf '\n'
    printf 'This is a multi-part message in MIME format.\n'
    printf '\n--=_cut_here\n'
    printf 'Content-Type: text/plain; charset=ISO-8859-1\n'
    printf 'Content-Transfer-Encoding: 7bit\n\n'
    printf 'Here is the photo.\n'
    printf '\n--=_cut_here\n'
    printf 'Content-Type: image/jpeg; name="photo.jpg"\n'
    printf 'Content-Transfer-Encoding: base64\n'
    printf 'Content-Disposition: attachment; filename="photo.jpg"\n\n'
    base64 -w 76 "$work/photo.jpg"
    printf '\n--=_cut_here--\n'
} >single-base64.vmf

# Three postings of one uuencoded file, the encoded lines shared out in order.
(cd "$work" && uuencode pic.bin pic.bin) >"$work/pic.uue"
total=$(wc -l <"$work/pic.uue")
per=$(((total + 2) / 3))
split -l "$per" -d -a 1 "$work/pic.uue" "$work/uu."
for n in 1 2 3; do
    {
        printf 'From: Poster <poster@example.invalid>\n'
        printf 'Subject: pic.bin (%d/3)\n' "$n"
        printf 'Newsgroups: alt.binaries.test\n'
        printf 'Date: Tue, 3 Oct 2000 14:05:0%d -0700\n' "$n"
        printf 'Message-ID: <uu%d@example.invalid>\n' "$n"
        printf '\n'
        cat "$work/uu.$((n - 1))"
        if [ "$n" = 2 ]; then
            printf '\n-- \nposted with a newsreader\n'
        fi
    } >"uu-part$n.vmf"
done

# A message/partial set carrying one base64 message.
base64 -w 76 "$work/data.bin" >"$work/data.b64"
total=$(wc -l <"$work/data.b64")
per=$(((total + 2) / 3))
split -l "$per" -d -a 1 "$work/data.b64" "$work/b64."
for n in 1 2 3; do
    {
        printf 'From: Poster <poster@example.invalid>\n'
        printf 'Subject: data.bin [%d/3]\n' "$n"
        printf 'Newsgroups: alt.binaries.test\n'
        printf 'Message-ID: <partial%d@example.invalid>\n' "$n"
        printf 'MIME-Version: 1.0\n'
        printf 'Content-Type: message/partial; id="set@example.invalid"; number=%d; total=3\n' "$n"
        printf '\n'
        if [ "$n" = 1 ]; then
            printf 'Message-ID: <set@example.invalid>\n'
            printf 'MIME-Version: 1.0\n'
            printf 'Content-Type: application/octet-stream; name="data.bin"\n'
            printf 'Content-Transfer-Encoding: base64\n'
            printf '\n'
        fi
        cat "$work/b64.$((n - 1))"
    } >"partial-$n.vmf"
done
