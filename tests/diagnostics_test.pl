#!/usr/bin/perl
# SPDX-License-Identifier: BSD-3-Clause
# Prints each message text of src/ that diagnostics.md lacks. A text is a run of string literals with
# two words in it; anything may be where a format or a name is filled in.
use strict;
use warnings;
use File::Find;
my $root = __FILE__ =~ s{[^/]*$}{..}r;

sub slurp {
  local (@ARGV, $/) = @_;
  my $text = <>;
  return $text;
}

sub squeeze { return $_[0] =~ s/\s+/ /gr }

# Texts that are neither errors nor warnings: results, progress that only other programs request, words
# of a format, assertions.
my $other = qr/^[ ]*(?:Library[ ](?:version|name|vendor):|Sections[ ]in|%s,[ ]%zu[ ]bytes|EFI[ ]spec
  |no[ ]error$|vex_pkg_\w+:[ ](?:Pkg|elf_end|Added|Updating)|Read[ ]%zu[ ]bytes|Wrote[ ]%zu[ ]bytes
  |To[ ]make|bfcl[ ]library[ ]|LLVM_IR|define[ ]|\w+[ ]!=[ ])/x;
my $page = squeeze(slurp("$root/docs/diagnostics.md") =~ s/^> ?//gmr);
my ($texts, $missing) = (0, 0);

sub check {
  # The usage texts are in the man page; the model is printed for debugging only.
  # The page explains the companions' findings by their rule.
  return if !/\.cpp$/ || m{/(?:usage|component_exe/.*|package_exe/(?:show|tree|main).*)\.cpp$};
  my $file = $_;
  my $code = slurp($file) =~ s{//.*}{}gr =~ s/^#.*//gmr =~ s/add_(?:option|flag)\([^;]*;//gr;
  while ($code =~ /((?:"(?:[^"\\]|\\.)*"\s*)+)/g) {
    my $text = join '', $1 =~ /"((?:[^"\\]|\\.)*)"/g;
    $text =~ s/\\n/ /g;
    $text =~ s/\\(["\\])/$1/g;
    next if $text !~ /[a-z<>=]{2,}'? +[a-z!=<(]{2,}/i; # not two words
    next if $text =~ /^ {4}|\[xml\]/ || $text =~ $other;
    ++$texts;
    my $wanted = join ' ?\S.{0,60}? ?', map { quotemeta squeeze(s/^\s+|\s+$//gr) }
      split /%(?:\d*z?[sdux])/, $text;
    next if $page =~ /$wanted/;
    print "$file: $text\n";
    ++$missing;
  }
}

for my $rule (slurp("$root/src/component_exe/finding.cpp") =~ /^    \{"([a-z-]+)",\s+"/gm) {
  ++$texts;
  print "rule $rule\n" and ++$missing if $page !~ /\| `$rule` \|/;
}
find({ wanted => \&check, no_chdir => 1 }, "$root/src");
print "$texts texts, $missing missing\n";
exit($missing > 0 || $texts < 50);
