#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# Holds the XML schema against the program: each row edits one good specification, FROM => TO, and
# says who refuses the result: both, the program alone, or nobody. 77: xmllint is not installed.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
program=${BFCL_BIN:-$root/build/bin}/bfcl-library
command -v xmllint >/dev/null || exit 77
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

schema_accepts() { xmllint --noout --schema "$root/share/hdl-component.xsd" "$1" >log 2>&1; }
for example in "$root"/examples/*/*.xml; do
  schema_accepts "$example" || { cat log; exit 1; }
done

echo 'module m #(parameter P) (a, p, q, mem, z);' >top.v
echo 'int f(int a); int g(int a);' >m.cl
signals=
for signal in clock resetn iready ivalid oready ovalid; do signals+="<VEYRA port='$signal' type='$signal'/>"; done
good="<RTL_SPEC><FUNCTION name='f' module='m'><ATTRIBUTES><IS_STALL_FREE value='no'/>\
<IS_FIXED_LATENCY value='yes'/><CAPACITY value='2'/><EXPECTED_LATENCY value='3'/>\
<PARAMETER name='P' value='1'/></ATTRIBUTES><INTERFACE>$signals<INPUT port='a' width='32'/>\
<MEM_INPUT port='p' access='readonly'/><OUTPUT port='q' width='16'/><VEYRA_MEM port='mem' width='1' \
burstwidth='5' optype='read' buffer_location=''/></INTERFACE><RESOURCES><ALUTS value='1.5'/>\
</RESOURCES><REQUIREMENTS><FILE name='top.v'/></REQUIREMENTS><C_MODEL><FILE name='m.cl'/></C_MODEL>\
</FUNCTION></RTL_SPEC>"

faults=0
while IFS='|' read -r who edit; do
  from=${edit%% => *} to=${edit#* => }
  [[ $good == *"$from"* ]] || { echo "nothing to edit: $from"; exit 1; }
  printf '%s\n' "${good/"$from"/"$to"}" | sed 's/RTL_SPEC/EFI_SPEC/g' >spec.xml
  refused=
  "$program" -c spec.xml -o out.bfco >program.log 2>&1 || refused=program
  schema_accepts spec.xml || refused+=schema
  case $refused in programschema) refused=both ;; '') refused=nobody ;; esac
  [[ $refused == "$who" ]] || { echo "$refused, not $who: $edit"; faults=1; cat log program.log; }
done <<'ROWS'
nobody|<RTL_SPEC> => <RTL_SPEC any='goes'><!-- c -->text
nobody|<FILE name='top.v'/> => <FILE name='top.v'><X/></FILE>
nobody|'no' => 'No'
nobody|'3' => ' 0x1F'
nobody|'1.5' => '-.5e3'
nobody|</INTERFACE> => <INPUT port='' width='8'/></INTERFACE>
nobody|<INTERFACE> => <INTERFACE><INPUT port='z' width='8'/>
nobody|<OUTPUT port='q' width='16'/> => 
both|<RTL_SPEC> => <RTL_SPEC><RTL_SPEC/>
both|<RTL_SPEC> => <RTL_SPEC><FUNCTION name='f' module='n'/>
both| name='f' => 
both|module='m' => module='m' b=''
both|<INTERFACE> => <ATTRIBUTES/><INTERFACE>
both|<INTERFACE> => <INTERFACE><OUTPUT port='z' width='8'/>
both|<PARAMETER => <ALUTS value='1'/><PARAMETER
both|type='iready' => type='ivalid'
both|<VEYRA port='ovalid' type='ovalid'/> => 
both|port='a' => port='p'
both|<VEYRA_MEM => <VEYRA_MEM port='mem' width='1' burstwidth='1' optype='read' buffer_location=''/><VEYRA_MEM
both|'32' => '12'
both|'readonly' => 'ReadOnly'
both|<INPUT port='a' width='32'/><MEM_INPUT port='p' access='readonly'/> => 
both|'no' => 'true'
both|<EXPECTED_LATENCY value='3'/> => 
both|'3' => '3.5'
both|'3' => '-1'
both|<C_MODEL><FILE name='m.cl'/></C_MODEL> => 
program|port='clock' => port='clk'
program|'3' => '2147483647'
program|<CAPACITY value='2'/><EXPECTED => <IS_FIXED_LATENCY value='no'/><EXPECTED
program|<MEM_INPUT port='p' access='readonly'/> => 
program|'read' => 'write'
program|'top.v' => 'm.cl'
program|name='f' => name='h'
ROWS
exit $faults
