#!/usr/bin/perl
# SPDX-License-Identifier: BSD-3-Clause
# Compares the XML schema with the program: it must accept every example, and refuse the edited
# specifications that the program refuses, except those marked in the table. 77: no xmllint.
use strict;
use warnings;
use File::Basename qw(dirname);
use File::Temp qw(tempfile);
my $root = dirname(__FILE__) . "/..";
exit 77 if system("command -v xmllint >/dev/null") != 0;

sub slurp { local (@ARGV, $/) = @_; return <> }
sub schema_refuses { system("xmllint --noout --schema $root/share/hdl-component.xsd $_[0] 2>/dev/null >&2") != 0 }

my $faults = 0;
for my $example (glob "$root/examples/*/*.xml") {
  print "refused: $example\n" and ++$faults if schema_refuses($example);
}
my $good = slurp("$root/tests/data/good.xml");
my $count = 0;
for my $edit (split /\n\n+/, slurp("$root/tests/data/spec_edits.txt")) {
  my @lines = grep { !/^#/ } split /\n/, $edit;
  my ($from, $to) = map { my $mark = $_; join "\n", map { length > 2 ? substr($_, 2) : "" } grep { /^\Q$mark\E/ } @lines } "-", "+";
  next if $from eq "";
  my $refused = grep { /^\d*: / } @lines;
  my $marked = grep { /^!/ } @lines;
  my ($file, $name) = tempfile(UNLINK => 1);
  print $file $good =~ s/\Q$from\E/$to/r;
  close $file;
  ++$count;
  next if schema_refuses($name) == (($refused != 0) != ($marked != 0));
  print "not as the table says: $from => $to\n";
  ++$faults;
}
print "$count specifications, $faults faults\n";
exit($faults || !$count ? 1 : 0);
