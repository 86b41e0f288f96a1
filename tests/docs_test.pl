#!/usr/bin/perl
# SPDX-License-Identifier: BSD-3-Clause
# Runs the pages given: writes the files that they show ("```c FILE", in a man page "; file FILE" before
# the block), runs the commands of blocks that begin with "$ ", and compares their output.
use strict;
use warnings;
use Cwd qw(abs_path);
use File::Temp qw(tempdir);
my $root = abs_path(__FILE__ =~ s{[^/]*$}{..}r);
my $bin = abs_path($ENV{BFCL_BIN} // "$root/build/bin");
$ENV{PATH} = "$bin:$bin/../tools:$root/examples/opencl/llvm:$ENV{PATH}";
@ENV{qw(LC_ALL TZ)} = qw(C.UTF-8 UTC);
my ($runs, $faults) = (0, 0);
for my $page (map { abs_path($_) } @ARGV) {
  local (@ARGV, $/) = ($page);
  my $text = <>;
  chdir tempdir(CLEANUP => 1);
  symlink "$root/$_", $_ for qw(examples share);
  while ($text =~ /(?:^; file (\S+)\n)?^```(?:\w+ (\S+)|\w*)\n(.*?)^```$/gms) {
    my ($file, $body) = ($1 // $2, $3);
    if (defined $file) { open my $out, '>', $file or die "$file: $!"; print $out $body; next }
    for (split /^(?=\$ )/m, $body =~ /^\$ / ? $body : '') {
      my ($command, $expected) = /^\$ ((?:[^\n]*\\\n)*[^\n]*)\n(.*)/s;
      my $got = `{ $command\n} 2>&1`;
      ++$runs;
      $faults += $got ne $expected && print "$page: $command\n--- said\n$expected--- is\n$got";
    }
  }
}
chdir '/';
print "$runs commands\n";
exit($faults > 0 || $runs == 0);
