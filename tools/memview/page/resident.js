// The resident memory: a waterfall of its parts at each moment that was taken apart.

function drawWaterfall(moment, holder) {
  const total = moment.resident;
  let sum = 0, widest = total;
  for (const step of moment.steps) widest = Math.max(widest, sum += step.bytes);
  const width = 420, height = 18;
  const body = element('tbody');
  sum = 0;
  moment.steps.forEach((step, i) => {
    const from = Math.min(sum, sum + step.bytes), to = Math.max(sum, sum + step.bytes);
    sum += step.bytes;
    const bar = d3.create('svg').attr('width', width).attr('height', height).attr('role', 'img')
      .attr('aria-label', step.title + ': ' + bytesText(step.bytes));
    bar.append('rect').attr('x', (from / widest) * width).attr('y', 2).attr('height', height - 4)
      .attr('width', Math.max(((to - from) / widest) * width, 1)).attr('fill', step.bytes < 0 ? '#8a8f98' : seriesColour(i));
    const picture = element('td');
    picture.append(bar.node());
    body.append(element('tr', { title: groupedText(step.bytes) + ' bytes' }, element('td', {}, step.title),
      element('td', { className: 'number' }, bytesText(step.bytes)),
      element('td', { className: 'number' }, (100 * step.bytes / total).toFixed(1) + ' %'), picture,
      element('td', { className: 'note' }, step.advice)));
  });
  holder.append(element('h3', {}, 'Resident memory ' + moment.title + ': ' + bytesText(total)),
    element('table', { className: 'waterfall' }, body));
}

function drawResident(process, holder) {
  if (!process.resident) return;
  const limits = process.resident.limits.map((limit) => limit.title + ' ' + bytesText(limit.bytes));
  const section = element('section', { id: 'resident' }, element('h2', {}, 'From the heap to the resident memory'));
  for (const moment of process.resident.moments) drawWaterfall(moment, section);
  if (limits.length) section.append(element('p', { className: 'note' }, 'Limits: ' + limits.join(', ') + '.'));
  holder.append(section);
}
