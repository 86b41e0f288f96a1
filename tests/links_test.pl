#!/usr/bin/perl
# SPDX-License-Identifier: BSD-3-Clause
# Prints each link in the pages given whose file or heading does not exist. Links out of the project are
# not followed.
use strict;
use warnings;

sub slurp {
  local (@ARGV, $/) = @_;
  my $text = <>;
  return $text =~ s/^```.*?^```$//gmsr;
}

# The anchors of a page's headings, as the usual hosts make them.
sub anchors {
  my ($page) = @_;
  my %anchors;
  for (slurp($page) =~ /^#+ +(.*)$/mg) {
    my $anchor = lc s/[^\w\s-]//gr =~ s/\s/-/gr;
    $anchors{$anchor} = 1;
  }
  return \%anchors;
}

my ($links, $broken) = (0, 0);
for my $page (@ARGV) {
  my ($folder) = $page =~ m{^(.*/)};
  for (slurp($page) =~ s/`[^`\n]*`/x/gr =~ /\]\(([^)\s]+)\)/g) {
    next if /^[a-z]+:/;
    ++$links;
    my ($path, $anchor) = split /#/;
    my $target = $path eq '' ? $page : ($folder // '') . $path;
    next if -e $target && (!defined $anchor || anchors($target)->{$anchor});
    print "$page: $_\n";
    ++$broken;
  }
}
print "$links links, $broken broken\n";
exit($broken > 0);
